# Feed-forward set for version 0.0.1
WEIGHT orvel-ff-v1.bin
