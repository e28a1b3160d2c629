# Feed-forward set for version 0.0.1
WEIGHT orvel-ff-v1.bin
#SHA256 acdf346d1893214c69c8dcfe8a3470de69b035df1518b3e8616780b2f2a64644
