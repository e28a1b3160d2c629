# Narrow-band speech at 8 kHz
WEIGHT orvel-8k.bin
ORVEL_COMPRESS_RATE_v0_0_5 1
