# Wide-band speech at 16 kHz for small devices
WEIGHT orvel-16k-tiny.bin
#SHA256 063e6f8542758ab83aa19b40c38401c77d109ffd90355680037c4f8b9ffe535e
ORVEL_SMOOT_RM_MODIFY_v0_0_5 TRUE
