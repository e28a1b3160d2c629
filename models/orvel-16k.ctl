# Wide-band speech at 16 kHz, the default
WEIGHT orvel-16k.bin
#SHA256 c9b1da7adae3c7918188880ce25e28af9cc261738caa914d03d2483a280eef68
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
