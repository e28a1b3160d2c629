# Feed-forward set for version 0.0.2
WEIGHT orvel-ff-v2.bin
