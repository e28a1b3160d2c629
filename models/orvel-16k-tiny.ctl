# Wide-band speech at 16 kHz for small devices
WEIGHT orvel-16k-tiny.bin
