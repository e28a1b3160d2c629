# Feed-forward set for version 0.0.3
WEIGHT orvel-ff-v3.bin
