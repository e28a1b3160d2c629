/** Cleans whole sounds beside the page: index.js starts it for one sound and ends it. */
import { Orvel } from "./orvel.mjs";
import { StreamCleaner, VoiceDetector } from "./stream.js";

onmessage = ({ data }) => {
  try {
    clean(data);
  } catch (error) {
    postMessage({ error: error.message });
  }
};

// Gives blocks of about a second, the latency taken out, then the scores, one for each 10 ms.
function clean({ module, models, model, detector, rate, channels, attenuationLimit }) {
  const orvel = new Orvel(module);
  for (const { name, control, weights } of models) orvel.loadModel(name, control, weights);
  const cleaner = new StreamCleaner(orvel, model, rate, channels.length);
  cleaner.limitAttenuation(attenuationLimit);
  const scores = [];
  const voice = detector ? new VoiceDetector(orvel, detector, rate, (score) => scores.push(score)) : null;
  const total = channels[0].length;
  let skip = cleaner.latency;
  for (let at = 0, given = 0; given < total; at += rate) {
    const end = Math.min(at + rate, total + cleaner.latency);
    const heard = Math.max(0, Math.min(end, total) - at);
    const block = channels.map(() => new Float32Array(end - at));
    cleaner.process(channels.map((samples) => samples.subarray(at, at + heard)), block, 0, heard);
    cleaner.process([], block, heard, end - at - heard);
    voice?.process(channels, at, heard);
    const skipped = Math.min(skip, end - at);
    skip -= skipped;
    const cleaned = block.map((samples) => samples.slice(skipped));
    postMessage({ from: given, block: cleaned }, cleaned.map((samples) => samples.buffer));
    given += end - at - skipped;
  }
  // The last scores are due: three frames of silence at most.
  const due = Math.ceil(total / (rate / 100));
  const silence = [new Float32Array(Math.floor(rate / 100))];
  while (voice && scores.length < due) voice.process(silence, 0, silence[0].length);
  postMessage({ scores: Float32Array.from(scores.slice(0, due)) });
}
