/** Sends what it hears to the page, in blocks; asked for the rest, it sends that and ends. */
class Recorder extends AudioWorkletProcessor {
  #block = new Float32Array(8192);
  #count = 0;
  #open = true;

  constructor() {
    super();
    this.port.onmessage = () => {
      this.#open = false;
      this.port.postMessage({ samples: this.#block.slice(0, this.#count), last: true });
    };
  }

  process([input]) {
    const samples = input[0];
    if (this.#open && samples) {
      this.#block.set(samples, this.#count);
      this.#count += samples.length;
      if (this.#count === this.#block.length) {
        this.port.postMessage({ samples: this.#block.slice(), last: false });
        this.#count = 0;
      }
    }
    return this.#open;
  }
}

registerProcessor("recorder", Recorder);
