# Full-band speech at 32 kHz
WEIGHT orvel-32k.bin
ORVEL_COMPRESS_RATE_v0_0_5 3
