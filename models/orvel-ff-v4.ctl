# Feed-forward set for version 0.0.4
WEIGHT orvel-ff-v4.bin
#SHA256 2acc0327aab06783b20f099cff280e178c164a8920a311fc41a3f0cfb2209b1f
