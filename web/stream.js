/**
 * Streams in blocks of any length over the sessions of orvel.mjs, which take whole frames: what
 * orvel/orvel_stream.hpp is for C++. process() allocates nothing.
 */

/** An attenuation limit, dB, from which on there is none. */
export const kNoLimit = 100;

// Above anything that a gain of floats reaches.
const kUnlimited = 1000;
// Not quite digital silence, which a cleaner may let pass as it is together with what it still holds.
const kAlmostSilent = 1e-9;

/** Cleans channels independently. Every block comes back in its own length, late by `latency` samples. */
export class StreamCleaner {
  #sessions = [];
  #frame;
  #position = 0;
  #limit = kNoLimit;

  /** @param orvel an Orvel with the model loaded; the sessions are closed with it. */
  constructor(orvel, model, rate, channels) {
    for (let c = 0; c < channels; ++c) this.#sessions.push(orvel.createCleaner(model, rate));
    this.#frame = this.#sessions[0].input.length;
    this.latency = this.#frame - 1 + this.#sessions[0].latency;
  }

  /** Lowers no frequency by more than this, dB, from the next frame on. */
  limitAttenuation(decibels) {
    if (decibels === this.#limit) return;
    this.#limit = decibels;
    for (const session of this.#sessions) session.limitAttenuation(decibels < kNoLimit ? decibels : kUnlimited);
  }

  /**
   * @param inputs,outputs a Float32Array for each channel, full scale 1; an output may be its own input. Missing
   *        inputs are silence.
   * @param from,length the block's place in these arrays.
   */
  process(inputs, outputs, from, length) {
    for (let done = 0; done < length; ) {
      const count = Math.min(length - done, this.#frame - this.#position);
      for (let c = 0; c < this.#sessions.length; ++c) {
        this.#advance(this.#sessions[c], inputs[c], outputs[c], from + done, count);
      }
      this.#position = (this.#position + count) % this.#frame;
      done += count;
    }
  }

  // A sample that comes in takes the place behind which the next one of the last frame goes out; the one that
  // completes a frame is answered by the first of that frame.
  #advance(session, input, output, at, count) {
    const first = this.#position;
    const plain = first + count === this.#frame ? count - 1 : count;
    const into = session.input;
    const cleaned = session.output;
    for (let i = 0; i < count; ++i) into[first + i] = input ? input[at + i] : kAlmostSilent;
    for (let i = 0; i < plain; ++i) output[at + i] = cleaned[first + i + 1];
    if (plain === count) return;
    session.process();
    output[at + plain] = session.output[0];
  }
}

/**
 * Scores voice activity in the mean of all channels. The score of each 10 ms becomes known 20 ms after their end.
 */
export class VoiceDetector {
  /** The last score; 0 as long as none is known. */
  score = 0;
  #session;
  #onScore;
  #position = 0;
  #frames = 0;

  /** @param onScore called with each score; for the audio thread one that allocates nothing, or none. */
  constructor(orvel, model, rate, onScore) {
    this.#session = orvel.createDetector(model, rate);
    this.#onScore = onScore;
  }

  process(inputs, from, length) {
    const into = this.#session.input;
    for (let i = 0; i < length; ++i) {
      let sum = 0;
      for (let c = 0; c < inputs.length; ++c) sum += inputs[c][from + i];
      into[this.#position++] = inputs.length === 0 ? 0 : sum / inputs.length;
      if (this.#position === into.length) this.#complete();
    }
  }

  #complete() {
    this.#position = 0;
    this.#session.process();
    if (++this.#frames <= 2) return;
    this.score = this.#session.output[0];
    this.#onScore?.(this.score);
  }
}
