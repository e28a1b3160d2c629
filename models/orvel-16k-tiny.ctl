# Wide-band speech at 16 kHz for small devices
WEIGHT orvel-16k-tiny.bin
#SHA256 72e50c4ffe078f84355d6bf9e99ed067a6e08602915ce8e62cc1398234b90f9e
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
