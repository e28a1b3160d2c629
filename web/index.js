/**
 * ORVEL for web pages: cleans live audio in an AudioWorklet, and whole sounds in a Worker.
 *
 *   const cleaner = await createCleaner(context);
 *   context.createMediaStreamSource(microphone).connect(cleaner).connect(context.destination);
 *
 * Its own files are all that is fetched, from the folder of this module: orvel.wasm and, below models/, the two
 * files of each model that is used. Nothing is sent.
 */
import { kNoLimit } from "./stream.js";

export { kNoLimit };

/** Sample rates that can be cleaned, Hz. */
export const kSampleRates = [8000, 12000, 16000, 24000, 32000, 44100, 48000, 88200, 96000];

/** The model for a sample rate: as `orvel clean` chooses it. */
export function modelFor(rate) {
  return rate >= 32000 ? "orvel-32k" : rate >= 16000 ? "orvel-16k" : "orvel-8k";
}

/**
 * A node that cleans what it is given and scores voice activity in it.
 * @param context an AudioContext or OfflineAudioContext; pages have AudioWorklets over https and from localhost.
 */
export async function createCleaner(context, options = {}) {
  if (!context.audioWorklet) throw new Error("orvel: no AudioWorklet here: the page needs https or localhost");
  const chosen = settings(options, context.sampleRate);
  const [files] = await Promise.all([
    fetchFiles(chosen),
    context.audioWorklet.addModule(new URL("orvel-worklet.js", chosen.base)),
  ]);
  const node = new CleanerNode(context, { ...chosen, ...files });
  return node.ready.then(
    () => node,
    (error) => {
      fetched.clear(); // a file may be damaged: the next try fetches anew
      node.close();
      throw error;
    },
  );
}

/** Made by createCleaner. */
export class CleanerNode extends AudioWorkletNode {
  #voice = null;
  #last = new Float32Array(32);

  constructor(context, { module, models, model, detector, channels, attenuationLimit }) {
    super(context, "orvel-cleaner", {
      numberOfInputs: 1,
      numberOfOutputs: 2,
      outputChannelCount: [channels, 1],
      channelCount: channels,
      channelCountMode: "explicit",
      processorOptions: { module, models, model, detector },
      parameterData: { attenuationLimit },
    });
    this.ready = new Promise((resolve, reject) => {
      this.port.onmessage = ({ data }) => {
        this.latency = data.latency;
        if (data.error) reject(new Error(data.error));
        else resolve();
      };
    });
    if (!detector) return;
    this.#voice = new AnalyserNode(context, { fftSize: 32 });
    this.connect(this.#voice, 1);
  }

  get attenuationLimit() {
    return this.parameters.get("attenuationLimit");
  }

  get voiceScore() {
    this.#voice?.getFloatTimeDomainData(this.#last);
    return this.#voice ? this.#last[31] : NaN;
  }

  close() {
    this.disconnect();
    this.port.postMessage("close");
  }
}

/** Cleans a whole AudioBuffer beside the page, which stays responsive. */
export async function cleanBuffer(buffer, options = {}) {
  const { signal, onBlock } = options;
  signal?.throwIfAborted();
  const chosen = settings(options, buffer.sampleRate);
  const files = await fetchFiles(chosen);
  signal?.throwIfAborted();
  const { length, numberOfChannels, sampleRate } = buffer;
  const cleaned = new AudioBuffer({ length, numberOfChannels, sampleRate });
  const channels = Array.from({ length: numberOfChannels }, (_, c) => buffer.getChannelData(c).slice());
  const worker = new Worker(new URL("orvel-worker.js", chosen.base), { type: "module" });
  try {
    const voice = await new Promise((resolve, reject) => {
      signal?.addEventListener("abort", () => reject(signal.reason), { once: true });
      worker.onerror = (event) => reject(new Error(`orvel: ${event.message ?? "orvel-worker.js does not start"}`));
      worker.onmessage = ({ data: { error, from, block, scores } }) => {
        if (error) {
          fetched.clear();
          return reject(new Error(error));
        }
        if (scores) return resolve(scores);
        block.forEach((samples, c) => cleaned.copyToChannel(samples, c, from));
        onBlock?.(cleaned, from + block[0].length);
      };
      const { model, detector, attenuationLimit } = chosen;
      const task = { ...files, model, detector, attenuationLimit, rate: sampleRate, channels };
      worker.postMessage(task, channels.map((samples) => samples.buffer));
    });
    return { buffer: cleaned, voice: chosen.detector ? voice : null };
  } finally {
    worker.terminate();
  }
}

function settings(options, rate) {
  if (!kSampleRates.includes(rate)) {
    throw new Error(`orvel: ${rate} Hz cannot be cleaned, only ${kSampleRates.join(", ")}`);
  }
  const base = new URL(options.base ?? ".", import.meta.url);
  const { model = modelFor(rate), detector = null, channels = 1, attenuationLimit = kNoLimit } = options;
  if (!(attenuationLimit >= 0)) throw new Error(`orvel: attenuationLimit is ${attenuationLimit}, expected dB from 0 up`);
  return { base, model, detector, channels, attenuationLimit };
}

const fetched = new Map();

// Each file once a page; one that failed is tried again.
function once(url, use) {
  if (!fetched.has(url.href)) {
    const found = fetchBytes(url).then(use);
    found.catch(() => fetched.delete(url.href));
    fetched.set(url.href, found);
  }
  return fetched.get(url.href);
}

async function fetchBytes(url) {
  const name = url.pathname.split("/").pop();
  const answer = await fetch(url).catch((error) => {
    throw new Error(`orvel: ${name} cannot be fetched: ${error.message}`);
  });
  if (!answer.ok) throw new Error(`orvel: ${name} cannot be fetched: status ${answer.status}`);
  return new Uint8Array(await answer.arrayBuffer());
}

const compile = (bytes) =>
  WebAssembly.compile(bytes).catch((error) => {
    throw new Error(
      "orvel: orvel.wasm is damaged or not for this browser, which needs WebAssembly's vectors and exceptions: " +
        error.message,
    );
  });

async function fetchFiles({ base, model, detector }) {
  const names = detector ? [model, detector] : [model];
  const file = (name) => once(new URL(`models/${name}`, base), (bytes) => bytes);
  const [module, ...models] = await Promise.all([
    once(new URL("orvel.wasm", base), compile),
    ...names.map(async (name) => {
      const [control, weights] = await Promise.all([file(`${name}.ctl`), file(`${name}.bin`)]);
      return { name, control, weights };
    }),
  ]);
  return { module, models };
}
