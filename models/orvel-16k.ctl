# Wide-band speech at 16 kHz, the default
WEIGHT orvel-16k.bin
