# Voice activity at 8 kHz
WEIGHT orvel-vad.bin
#SHA256 ddeec81e9a9ba30fb7f49f345e3863fcb642a97ec41d1f4edf642ca848fe905e
