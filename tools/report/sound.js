"use strict";
// Sounds of the page: decoding, playing in step, and their spectra.
const text = (id) => document.getElementById(id).textContent.trim();
const bytesOf = (id) => Uint8Array.from(atob(text(id)), (c) => c.charCodeAt(0));

// The samples at the sound's own rate, which stands in the FLAC header.
async function decode(id) {
  const bytes = bytesOf(id);
  const rate = (bytes[18] << 12) | (bytes[19] << 4) | (bytes[20] >> 4);
  return new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes.buffer);
}

// All sounds run at once and only one is heard, so that a switch never loses the place.
class Player {
  constructor(sounds) { this.sounds = sounds; this.place = 0; this.playing = false; this.heard = Object.keys(sounds)[0]; }
  get duration() { return this.sounds[this.heard].duration; }
  get time() {
    if (!this.playing) return this.place;
    return Math.min(this.place + this.context.currentTime - this.since, this.duration);
  }
  start() {
    this.context ??= new AudioContext();
    this.context.resume();
    if (this.place >= this.duration - 0.01) this.place = 0;
    this.since = this.context.currentTime + 0.02;
    this.running = Object.entries(this.sounds).map(([name, buffer]) => {
      const source = new AudioBufferSourceNode(this.context, { buffer });
      const gain = new GainNode(this.context, { gain: name === this.heard ? 1 : 0 });
      source.connect(gain).connect(this.context.destination);
      source.start(this.since, this.place);
      return { name, source, gain };
    });
    this.playing = true;
  }
  stop() {
    this.place = this.time;
    this.running?.forEach(({ source }) => source.stop());
    this.running = null;
    this.playing = false;
  }
  seek(seconds) {
    const again = this.playing;
    if (again) this.stop();
    this.place = Math.max(0, Math.min(seconds, this.duration));
    if (again) this.start();
  }
  hear(name) {
    this.heard = name;
    this.running?.forEach((each) => each.gain.gain.setTargetAtTime(each.name === name ? 1 : 0, this.context.currentTime, 0.01));
  }
}

// In-place radix-2 transform of a power of two.
function transform(re, im) {
  const n = re.length;
  for (let i = 1, j = 0; i < n; i++) {
    let bit = n >> 1;
    for (; j & bit; bit >>= 1) j ^= bit;
    j ^= bit;
    if (i < j) { [re[i], re[j]] = [re[j], re[i]]; [im[i], im[j]] = [im[j], im[i]]; }
  }
  for (let size = 2; size <= n; size *= 2) {
    const step = -2 * Math.PI / size;
    for (let k = 0; k < size / 2; k++) {
      const c = Math.cos(step * k), s = Math.sin(step * k);
      for (let i = k; i < n; i += size) {
        const m = i + size / 2, x = re[m] * c - im[m] * s, y = re[m] * s + im[m] * c;
        re[m] = re[i] - x; im[m] = im[i] - y; re[i] += x; im[i] += y;
      }
    }
  }
}

// Decibels below a full-scale sine, columns of (size / 2) bins; a column is the mean of up to 3 frames.
function spectrogram(samples, rate, columns) {
  const size = 2 ** Math.round(Math.log2(rate * 0.032));
  const window = Float64Array.from({ length: size }, (_, i) => 0.5 - 0.5 * Math.cos(2 * Math.PI * i / size));
  const bins = size / 2, levels = new Float32Array(columns * bins), width = samples.length / columns;
  const frames = Math.max(1, Math.min(3, Math.floor(width / (size / 2))));
  const re = new Float64Array(size), im = new Float64Array(size);
  for (let x = 0; x < columns; x++) {
    const power = new Float64Array(bins);
    for (let f = 0; f < frames; f++) {
      const from = Math.round(width * (x + (f + 0.5) / frames) - size / 2);
      for (let i = 0; i < size; i++) re[i] = (samples[from + i] ?? 0) * window[i];
      im.fill(0);
      transform(re, im);
      for (let b = 0; b < bins; b++) power[b] += re[b] * re[b] + im[b] * im[b];
    }
    for (let b = 0; b < bins; b++) levels[x * bins + b] = 10 * Math.log10(power[b] / frames / (size * size / 16) + 1e-12);
  }
  return { levels, bins, columns };
}
