// Blocks of 128 samples through stream.js, between the lines begin and end: node blocks.mjs SITE SECONDS WASTE
import { readFileSync } from "node:fs";
import { pathToFileURL } from "node:url";

const [site, seconds, waste] = process.argv.slice(2);
const { Orvel } = await import(pathToFileURL(`${site}/orvel.mjs`));
const { StreamCleaner, VoiceDetector } = await import(pathToFileURL(`${site}/stream.js`));
const orvel = new Orvel(new WebAssembly.Module(readFileSync(`${site}/orvel.wasm`)));
for (const name of ["orvel-16k-tiny", "orvel-vad"]) {
  orvel.loadModel(name, readFileSync(`${site}/models/${name}.ctl`), readFileSync(`${site}/models/${name}.bin`));
}
const cleaner = new StreamCleaner(orvel, "orvel-16k-tiny", 48000, 1);
const detector = new VoiceDetector(orvel, "orvel-vad", 48000);
const blocks = [Float32Array.from({ length: 128 }, (_, i) => Math.sin(i * i))];
let kept = null;

function run(seconds) {
  for (let i = 0; i < 375 * seconds; ++i) {
    detector.process(blocks, 0, 128);
    cleaner.limitAttenuation(i % 40);
    cleaner.process(blocks, blocks, 0, 128);
    if (waste === "1") kept = blocks.map((block) => block.slice());
  }
}

run(10); // until all is compiled
console.log("begin");
run(Number(seconds));
console.log("end");
if (waste === "1" && kept === null) throw new Error("nothing was made");
