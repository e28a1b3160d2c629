# Narrow-band speech at 8 kHz
WEIGHT orvel-8k.bin
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
ORVEL_COMPRESS_RATE_v0_0_5 1
