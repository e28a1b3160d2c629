/** The microphone through the worklet: heard, looked at and recorded. Errors are texts for the reader of the page. */
import { createCleaner } from "../index.js";
import { kMostSeconds } from "./sound-file.js";

const kRate = 48000;
const kColumnSeconds = 0.02;

const kRefusals = {
  NotAllowedError: "The microphone may not be used: allow it for this page in the browser, then try again.",
  NotFoundError: "There is no microphone.",
  NotReadableError: "The microphone cannot be opened: another program may be using it.",
};

export class Microphone {
  /** Called when the device goes away, or no more can be kept. */
  onend = null;
  rate = kRate;
  #stream;
  #context;
  #cleaner;
  #recorder;
  #looks = {};
  #gains = {};
  #blocks = [];
  #length = 0; // samples in all blocks
  #columns = 0;

  static async open(options) {
    if (!navigator.mediaDevices) throw new Error("Browsers give pages the microphone over https and from localhost only.");
    const raw = { echoCancellation: false, noiseSuppression: false, autoGainControl: false, channelCount: 1 };
    const stream = await navigator.mediaDevices.getUserMedia({ audio: raw }).catch((error) => {
      throw new Error(kRefusals[error.name] ?? `The microphone cannot be opened: ${error.message}`);
    });
    const opened = new Microphone();
    opened.#stream = stream;
    opened.#context = new AudioContext({ sampleRate: kRate, latencyHint: "interactive" });
    try {
      await opened.#connect(options);
    } catch (error) {
      opened.#release();
      throw error;
    }
    return opened;
  }

  async #connect(options) {
    const context = this.#context;
    await context.audioWorklet.addModule(new URL("recorder-worklet.js", import.meta.url));
    this.#cleaner = await createCleaner(context, options);
    const source = context.createMediaStreamSource(this.#stream);
    // Before and after are heard in step.
    const delay = new DelayNode(context, { delayTime: this.#cleaner.latency / kRate });
    const ends = { before: source.connect(delay), after: source.connect(this.#cleaner) };
    for (const [name, end] of Object.entries(ends)) {
      this.#looks[name] = new AnalyserNode(context, { fftSize: 2048 });
      this.#gains[name] = new GainNode(context, { gain: 0 });
      end.connect(this.#looks[name]);
      end.connect(this.#gains[name]).connect(context.destination);
    }
    this.#recorder = new AudioWorkletNode(context, "recorder", {
      numberOfOutputs: 0,
      channelCount: 1,
      channelCountMode: "explicit",
    });
    this.#recorder.port.onmessage = ({ data }) => {
      this.#keep(data.samples);
      if (this.#length >= kMostSeconds * kRate) this.onend?.();
    };
    source.connect(this.#recorder);
    await context.resume();
    this.#stream.getTracks()[0].onended = () => this.onend?.();
  }

  get seconds() {
    return this.#context.currentTime;
  }

  limitAttenuation(decibels) {
    this.#cleaner.attenuationLimit.value = decibels;
  }

  /** @param name "before" or "after"; null for neither. */
  hear(name) {
    for (const [each, { gain }] of Object.entries(this.#gains)) {
      gain.setTargetAtTime(each === name ? 1 : 0, this.#context.currentTime, 0.01);
    }
  }

  /** Levels and score of this moment, and how many columns have passed since the last look. */
  look(analysis) {
    const passed = Math.floor(this.seconds / kColumnSeconds) - this.#columns;
    this.#columns += passed;
    const samples = new Float32Array(analysis.size);
    const levels = (name) => {
      this.#looks[name].getFloatTimeDomainData(samples);
      return analysis.levels(samples, analysis.size / 2);
    };
    return { columns: passed, before: levels("before"), after: levels("after"), score: this.#cleaner.voiceScore };
  }

  /** Ends it. @return what was recorded, as an AudioBuffer; null for nothing. */
  async close() {
    await new Promise((resolve) => {
      this.#recorder.port.onmessage = ({ data }) => {
        this.#keep(data.samples);
        if (data.last) resolve();
      };
      this.#recorder.port.postMessage("end");
    });
    this.#release();
    if (this.#length === 0) return null;
    const sound = new AudioBuffer({ length: this.#length, numberOfChannels: 1, sampleRate: kRate });
    let at = 0;
    for (const block of this.#blocks) {
      sound.copyToChannel(block, 0, at);
      at += block.length;
    }
    return sound;
  }

  #keep(samples) {
    this.#blocks.push(samples);
    this.#length += samples.length;
  }

  #release() {
    for (const track of this.#stream.getTracks()) track.stop();
    this.#cleaner?.close();
    this.#context.close();
  }
}
