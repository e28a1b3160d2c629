/**
 * The AudioWorkletProcessor "orvel-cleaner": index.js makes its node.
 *
 * Input 0 comes out of output 0 cleaned, late by the latency that the first message states. Output 1 is the score
 * of voice activity as a signal, so that nothing has to be sent from the audio thread. The parameter
 * attenuationLimit is read once a block. process() allocates nothing: memory is taken in the constructor.
 */
import { Orvel } from "./orvel.mjs";
import { kNoLimit, StreamCleaner, VoiceDetector } from "./stream.js";

class CleanerProcessor extends AudioWorkletProcessor {
  #cleaner = null;
  #detector = null;
  #open = true;

  static get parameterDescriptors() {
    return [
      { name: "attenuationLimit", defaultValue: kNoLimit, minValue: 0, maxValue: kNoLimit, automationRate: "k-rate" },
    ];
  }

  constructor({ processorOptions, outputChannelCount }) {
    super();
    this.port.onmessage = () => {
      this.#open = false;
    };
    try {
      const { module, models, model, detector } = processorOptions;
      const orvel = new Orvel(module);
      for (const { name, control, weights } of models) orvel.loadModel(name, control, weights);
      this.#cleaner = new StreamCleaner(orvel, model, sampleRate, outputChannelCount[0]);
      if (detector) this.#detector = new VoiceDetector(orvel, detector, sampleRate);
      this.port.postMessage({ latency: this.#cleaner.latency });
    } catch (error) {
      this.#open = false;
      this.port.postMessage({ error: error.message });
    }
  }

  process(inputs, outputs, parameters) {
    if (!this.#open) return false;
    const input = inputs[0];
    const output = outputs[0];
    const length = output[0].length;
    if (this.#detector !== null) this.#detector.process(input, 0, length);
    this.#cleaner.limitAttenuation(parameters.attenuationLimit[0]);
    this.#cleaner.process(input, output, 0, length);
    outputs[1][0].fill(this.#detector === null ? 0 : this.#detector.score);
    return true;
  }
}

registerProcessor("orvel-cleaner", CleanerProcessor);
