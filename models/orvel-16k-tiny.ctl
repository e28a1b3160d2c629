# Wide-band speech at 16 kHz for small devices
WEIGHT orvel-16k-tiny.bin
#SHA256 1937c1e41642ad47a77874a121f47e105129c59ca710e29b5aebfb14e174140b
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
