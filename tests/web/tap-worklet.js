// Passes audio on, counts blocks and gaps in the context's time, and keeps them when asked to.
class Tap extends AudioWorkletProcessor {
  #blocks = 0;
  #gaps = 0;
  #next = null;
  #kept = [];
  #open = true;

  constructor({ processorOptions }) {
    super();
    this.keep = processorOptions.keep;
    this.port.onmessage = () => {
      this.#open = false;
      this.port.postMessage({ blocks: this.#blocks, gaps: this.#gaps, kept: this.#kept.map(joined) });
    };
  }

  process([input], [output]) {
    if (!this.#open || input.length === 0) return this.#open;
    if (this.#next !== null && this.#next !== currentFrame) ++this.#gaps;
    this.#next = currentFrame + input[0].length;
    ++this.#blocks;
    input.forEach((samples, c) => {
      output[c].set(samples);
      if (this.keep) (this.#kept[c] ??= []).push(samples.slice());
    });
    return true;
  }
}

function joined(blocks) {
  const samples = new Float32Array(blocks.reduce((sum, block) => sum + block.length, 0));
  blocks.forEach((block, i) => samples.set(block, i * block.length));
  return samples;
}

registerProcessor("tap", Tap);
