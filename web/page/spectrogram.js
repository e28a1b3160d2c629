/** A spectrogram on a canvas, to which columns are added from the left to the right or that scrolls. */

const kFloor = 80; // dB from the lightest colour down to the darkest
const kColours = [[8, 10, 32], [58, 20, 102], [158, 42, 99], [232, 98, 52], [252, 190, 72], [252, 252, 210]];
const kTop = 16000; // Hz: no model keeps more
const kBins = 256; // bands of a column

const topOf = (rate) => Math.min(kTop, rate / 2);

/** Levels of frames of sound, decibels below a full-scale sine, in kBins bands up to topOf(rate). */
export class Analysis {
  constructor(rate) {
    this.size = 2 ** Math.round(Math.log2(rate * 0.032));
    this.#window = Float64Array.from({ length: this.size }, (_, i) => 0.5 - 0.5 * Math.cos((2 * Math.PI * i) / this.size));
    this.#step = (this.size * topOf(rate)) / rate / kBins;
    this.#re = new Float64Array(this.size);
    this.#im = new Float64Array(this.size);
  }
  #window;
  #step; // lines of the transform in a band
  #re;
  #im;

  /** The frame whose middle is at a sample; silence lies around the sound. */
  levels(samples, middle) {
    const from = Math.round(middle - this.size / 2);
    for (let i = 0; i < this.size; ++i) this.#re[i] = (samples[from + i] ?? 0) * this.#window[i];
    this.#im.fill(0);
    transform(this.#re, this.#im);
    const found = new Float32Array(kBins);
    for (let b = 0; b < kBins; ++b) {
      let power = 0;
      const first = Math.floor(b * this.#step);
      for (let i = first; i < Math.max((b + 1) * this.#step, first + 1); ++i) {
        power = Math.max(power, this.#re[i] ** 2 + this.#im[i] ** 2);
      }
      found[b] = 10 * Math.log10((16 * power) / this.size ** 2 + 1e-12);
    }
    return found;
  }
}

// In place, of a power of two.
function transform(re, im) {
  const n = re.length;
  for (let i = 1, j = 0; i < n; ++i) {
    let bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i >= j) continue;
    [re[i], re[j]] = [re[j], re[i]];
    [im[i], im[j]] = [im[j], im[i]];
  }
  for (let half = 1; half < n; half *= 2) {
    for (let k = 0; k < half; ++k) {
      const c = Math.cos((Math.PI * k) / half);
      const s = -Math.sin((Math.PI * k) / half);
      for (let i = k; i < n; i += 2 * half) {
        const x = re[i + half] * c - im[i + half] * s;
        const y = re[i + half] * s + im[i + half] * c;
        re[i + half] = re[i] - x;
        im[i + half] = im[i] - y;
        re[i] += x;
        im[i] += y;
      }
    }
  }
}

export class Spectrogram {
  #canvas;
  #sheet;
  #pen;
  #rate = 48000;
  #columns = 0;
  #next = 0;

  constructor(canvas) {
    this.#canvas = canvas;
  }

  /** Begins anew. @param columns across the canvas. @param top dB of the lightest colour. */
  begin(columns, rate, top) {
    this.#columns = columns;
    this.#rate = rate;
    this.top = top;
    this.#next = 0;
    this.#sheet = new OffscreenCanvas(columns, kBins);
    this.#pen = this.#sheet.getContext("2d");
    this.#pen.fillStyle = `rgb(${kColours[0]})`;
    this.#pen.fillRect(0, 0, columns, kBins);
  }

  /** Adds a column; past the right edge the first ones make room. */
  add(levels) {
    const column = new ImageData(1, kBins);
    for (let b = 0; b < kBins; ++b) {
      const value = Math.max(0, Math.min(0.9999, (levels[b] - this.top + kFloor) / kFloor)) * (kColours.length - 1);
      const low = kColours[Math.floor(value)];
      const high = kColours[Math.floor(value) + 1];
      const shade = low.map((part, k) => part + (high[k] - part) * (value % 1));
      column.data.set([...shade, 255], 4 * (kBins - 1 - b));
    }
    this.#pen.putImageData(column, this.#next++ % this.#columns, 0);
  }

  draw() {
    const ratio = window.devicePixelRatio;
    const width = Math.round(this.#canvas.clientWidth * ratio);
    const height = Math.round(this.#canvas.clientHeight * ratio);
    if (this.#canvas.width !== width || this.#canvas.height !== height) {
      this.#canvas.width = width;
      this.#canvas.height = height;
    }
    if (this.#columns === 0 || width === 0) return;
    const pen = this.#canvas.getContext("2d");
    // The oldest column is at the left.
    const oldest = this.#next > this.#columns ? this.#next % this.#columns : 0;
    const split = ((this.#columns - oldest) / this.#columns) * width;
    pen.drawImage(this.#sheet, oldest, 0, this.#columns - oldest, kBins, 0, 0, split, height);
    if (oldest > 0) pen.drawImage(this.#sheet, 0, 0, oldest, kBins, split, 0, width - split, height);
    pen.font = `${11 * ratio}px system-ui, sans-serif`;
    pen.fillStyle = "#ffffffd0";
    for (const share of [0.25, 0.5, 0.75]) {
      const kilohertz = (share * topOf(this.#rate)) / 1000;
      pen.fillText(`${Number(kilohertz.toFixed(1))} kHz`, 6 * ratio, height * (1 - share) + 4 * ratio);
    }
  }
}

/** Bars of scores from 0 to 1, the oldest at the left: strong where speech is found, from 0.5 on. */
export function drawVoice(canvas, scores, columns) {
  const ratio = window.devicePixelRatio;
  canvas.width = Math.round(canvas.clientWidth * ratio);
  canvas.height = Math.round(canvas.clientHeight * ratio);
  const pen = canvas.getContext("2d");
  pen.fillStyle = getComputedStyle(canvas).color;
  for (let x = 0; x < canvas.width; ++x) {
    const score = scores[Math.floor((x * columns) / canvas.width)];
    pen.globalAlpha = score >= 0.5 ? 1 : 0.35;
    if (score > 0) pen.fillRect(x, canvas.height * (1 - score), 1, canvas.height * score);
  }
  pen.globalAlpha = 0.6;
  pen.fillRect(0, Math.round(canvas.height / 2), canvas.width, ratio);
}
