# Voice activity at 8 kHz
WEIGHT orvel-vad.bin
#SHA256 3fcbfa6aab07683afb2f64334e8b5d0f06281387a6c849b3c31f853a8872e620
