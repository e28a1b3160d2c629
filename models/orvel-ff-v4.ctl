# Feed-forward set for version 0.0.4
WEIGHT orvel-ff-v4.bin
