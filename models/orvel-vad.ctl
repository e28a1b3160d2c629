# Voice activity at 8 kHz
WEIGHT orvel-vad.bin
