// Streams through the node, for test_stream.py and bench/web.py: what went in and came out is put to scratch/.
import { createCleaner } from "/index.js";

const kBlock = 128;

async function soundOf(url, rate) {
  const samples = new Float32Array(await (await fetch(url)).arrayBuffer());
  const sound = new AudioBuffer({ length: samples.length, sampleRate: rate });
  sound.copyToChannel(samples, 0);
  return sound;
}

const looped = (context, sound) => new AudioBufferSourceNode(context, { buffer: sound, loop: true });

async function put(name, samples) {
  await fetch(`/scratch/${name}`, { method: "PUT", body: new Blob([samples]) });
}

// A tap behind `node`, whose processor counts its blocks and those that are missing in the context's time.
async function tap(context, node, channels, keep) {
  await context.audioWorklet.addModule("/test/tap-worklet.js");
  const made = new AudioWorkletNode(context, "tap", {
    outputChannelCount: [channels],
    channelCount: channels,
    channelCountMode: "explicit",
    processorOptions: { keep },
  });
  node.connect(made).connect(context.destination);
  return made;
}

const answer = (node) =>
  new Promise((resolve) => {
    node.port.onmessage = ({ data }) => resolve(data);
    node.port.postMessage("end");
  });

/** Seconds of a looped sound through an OfflineAudioContext; without a model through no cleaner at all. */
window.offline = async ({ url, rate, seconds, model, detector, out }) => {
  const context = new OfflineAudioContext(1, rate * seconds, rate);
  const source = looped(context, await soundOf(url, rate));
  const cleaner = model ? await createCleaner(context, { model, detector }) : null;
  const end = await tap(context, cleaner ? source.connect(cleaner) : source, 1, false);
  source.start();
  const start = performance.now();
  const rendered = await context.startRendering();
  const wall = (performance.now() - start) / 1000;
  const counts = await answer(end);
  if (out) await put(out, rendered.getChannelData(0));
  return { ...counts, wall, latency: cleaner?.latency, expected: (rate * seconds) / kBlock };
};

/** The same in real time: the input is recorded beside the output. */
window.live = async ({ url, rate, seconds, model, detector, limits, out }) => {
  const context = new AudioContext({ sampleRate: rate });
  await context.suspend(); // all nodes begin with the same block
  const source = looped(context, await soundOf(url, rate));
  const cleaner = await createCleaner(context, { model, detector });
  const pair = new ChannelMergerNode(context, { numberOfInputs: 3 });
  source.connect(pair, 0, 0);
  source.connect(cleaner).connect(pair, 0, 1);
  cleaner.connect(pair, 1, 2);
  const end = await tap(context, pair, 3, true);
  const scores = [];
  source.start();
  await context.resume();
  for (const limit of limits ?? [100]) {
    cleaner.attenuationLimit.value = limit;
    for (let waited = 0; waited < seconds / (limits?.length ?? 1); waited += 0.1) {
      await new Promise((resolve) => setTimeout(resolve, 100));
      scores.push(cleaner.voiceScore);
    }
  }
  const { kept, ...counts } = await answer(end);
  const { latency } = cleaner;
  const stats = JSON.parse(JSON.stringify(context.playbackStats ?? context.playoutStats ?? "no figures of the output"));
  cleaner.close();
  await context.close();
  for (const [c, name] of ["before", "after", "voice"].entries()) await put(`${out}.${name}`, kept[c]);
  return { ...counts, latency, stats, scores };
};

document.body.dataset.ready = "yes";
