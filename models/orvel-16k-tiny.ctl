# Wide-band speech at 16 kHz for small devices
WEIGHT orvel-16k-tiny.bin
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
