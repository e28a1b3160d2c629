# Voice activity at 8 kHz
WEIGHT orvel-vad.bin
#SHA256 1303924ca6be84b0dc485fb7b8fc9a81128c84e6cbbb5522c6411afbb6567b52
