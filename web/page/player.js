/** Plays two sounds of one length in step: both run, one is heard, so that a switch never loses the place. */
export class Player {
  #context = null;
  #running = [];
  #sounds;
  #heard = "before";
  #place = 0;
  #since = 0;

  constructor(sounds) {
    this.#sounds = sounds;
    this.duration = sounds.before.duration;
  }

  get playing() {
    return this.#running.length > 0;
  }

  /** Seconds from the beginning. */
  get time() {
    const passed = this.playing ? Math.max(0, this.#context.currentTime - this.#since) : 0;
    return Math.min(this.#place + passed, this.duration);
  }

  start() {
    this.#context ??= new AudioContext({ sampleRate: this.#sounds.before.sampleRate });
    this.#context.resume();
    if (this.#place >= this.duration - 0.01) this.#place = 0;
    this.#since = this.#context.currentTime + 0.02;
    this.#running = Object.entries(this.#sounds).map(([name, buffer]) => {
      const source = new AudioBufferSourceNode(this.#context, { buffer });
      const gain = new GainNode(this.#context, { gain: name === this.#heard ? 1 : 0 });
      source.connect(gain).connect(this.#context.destination);
      source.start(this.#since, this.#place);
      return { name, source, gain };
    });
  }

  stop() {
    this.#place = this.time;
    for (const { source } of this.#running) source.stop();
    this.#running = [];
  }

  seek(seconds) {
    const again = this.playing;
    if (again) this.stop();
    this.#place = Math.max(0, Math.min(seconds, this.duration));
    if (again) this.start();
  }

  /** @param name "before" or "after". */
  hear(name) {
    this.#heard = name;
    for (const each of this.#running) {
      each.gain.gain.setTargetAtTime(each.name === name ? 1 : 0, this.#context.currentTime, 0.01);
    }
  }

  /** Puts another sound in the place of one, without losing the place. */
  replace(name, buffer) {
    this.#sounds[name] = buffer;
    this.seek(this.time);
  }

  close() {
    this.stop();
    this.#context?.close();
  }
}
