# Feed-forward set for version 0.0.2
WEIGHT orvel-ff-v2.bin
#SHA256 61c7b4df387428b9e6c01a5ef2ff906e6b66c0caf7dcf9e9f0f7319225a33848
