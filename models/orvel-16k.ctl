# Wide-band speech at 16 kHz, the default
WEIGHT orvel-16k.bin
#SHA256 bfb57abe49f661f3b7d65da342e420f7169f7897f87c5807b37aa0a2e3a61e23
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
