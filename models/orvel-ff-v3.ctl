# Feed-forward set for version 0.0.3
WEIGHT orvel-ff-v3.bin
#SHA256 b0d5f252ec6c26ee6a562b1470807e9ccb4b6efd7b6129977f265d3d097761d1
