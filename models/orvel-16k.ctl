# Wide-band speech at 16 kHz, the default
WEIGHT orvel-16k.bin
#SHA256 16f7f3f66d362dd023caa3c4bb1d45efe4a11ee37dc333f7904437569b749d66
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
