// As orvel_outputs, for the WebAssembly module: node outputs.mjs MODULE_FOLDER MODELS_FOLDER FILE EXPECTED
import { appendFileSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { performance } from "node:perf_hooks";

const [folder, models, path, expected] = process.argv.slice(2);
const { Orvel } = await import(`${folder}/orvel.mjs`);
const orvel = new Orvel(new WebAssembly.Module(readFileSync(`${folder}/orvel.wasm`)));
for (const file of readdirSync(models).filter((name) => name.endsWith(".ctl"))) {
  const name = file.slice(0, -4);
  orvel.loadModel(name, readFileSync(`${models}/${file}`), readFileSync(`${models}/${name}.bin`));
}

const data = readFileSync(expected);
writeFileSync(path, "");
let milliseconds = 0;
let audio = 0;
for (let at = 0; at < data.length; ) {
  const end = data.indexOf(10, at);
  const [model, rate, kind, inputs, outputs] = data.toString("latin1", at, end).split(" ");
  const bytes = data.subarray(end + 1, end + 1 + 4 * inputs);
  const input = new Float32Array(Uint8Array.from(bytes).buffer);
  at = end + 1 + 4 * inputs + 4 * outputs;

  const session =
    kind === "detector" ? orvel.createDetector(model, Number(rate)) : orvel.createCleaner(model, Number(rate));
  const got = [];
  const memory = orvel.functions.memory.buffer.byteLength;
  const size = session.input.length;
  const start = performance.now();
  for (let i = 0; i + size <= input.length; i += size) {
    session.input.set(input.subarray(i, i + size));
    if (!session.process()) throw new Error(`${model} at ${rate} Hz: a frame was refused`);
    got.push(...session.output);
  }
  milliseconds += performance.now() - start;
  audio += inputs / rate;
  if (orvel.functions.memory.buffer.byteLength !== memory) throw new Error("memory grew in a frame");
  session.close();
  appendFileSync(path, `${model} ${rate} ${kind} ${inputs} ${got.length}\n`);
  appendFileSync(path, bytes);
  appendFileSync(path, new Uint8Array(Float32Array.from(got).buffer));
}
console.log(`${(milliseconds / audio).toFixed(1)} ms per second of audio, all streams together`);
