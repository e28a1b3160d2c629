# Wide-band speech at 16 kHz, the default
WEIGHT orvel-16k.bin
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
