/** The page: what is chosen, spoken, played and shown. */
import { cleanBuffer } from "../index.js";
import * as controls from "./controls.js";
import { element, fail, limit, options, setMode, setReady, showStrength, tell } from "./controls.js";
import { Microphone } from "./microphone.js";
import { Player } from "./player.js";
import { minutes, readSound } from "./sound-file.js";
import { Analysis, Spectrogram, drawVoice } from "./spectrogram.js";

const kColumns = 900;
const kLiveColumns = 400; // of 20 ms
const kLiveTop = -30; // dB of the lightest colour
const kLeastTop = -70; // the same for a file that is nearly silent
const pictures = { before: new Spectrogram(element("before")), after: new Spectrogram(element("after")) };

let heard = "before";
let sound = null; // { name, before, after, voice, player } of a file or a recording
let microphone = null;
let work = new AbortController(); // what was begun last
let opening = null; // the signal of that work as long as it waits for a new sound
let cleaning = false; // the sound is not cleaned yet as the settings say

/**
 * Runs what begins something new: whatever was under way ends, and an error is shown unless it was stopped. A new
 * sound that cannot be had leaves the last one as it was, and its cleaning goes on.
 */
async function begin(task) {
  work.abort();
  work = new AbortController();
  const { signal } = work;
  element("error").textContent = "";
  try {
    await task(signal).catch((error) => {
      if (signal.aborted) return;
      fail(error);
      return cleaning ? showSound(signal) : undefined;
    });
  } catch (error) {
    if (!signal.aborted) fail(error);
  }
}

// Long loops pause, so that the page answers.
const breath = () => new Promise((resolve) => setTimeout(resolve));

/** Waits for a new sound, which a change of the settings does not stop. */
async function open(source, signal) {
  opening = signal;
  try {
    return await source;
  } finally {
    if (opening === signal) opening = null;
  }
}

async function takeFile(file, signal) {
  tell(`Reading ${file.name} …`);
  const before = await open(readSound(file), signal);
  signal.throwIfAborted();
  await stopMicrophone(false);
  await takeSound(file.name, before, signal);
}

async function takeSound(name, before, signal) {
  sound?.player.close();
  sound = { name, before, after: null, voice: [], top: null, player: new Player({ before, after: before }) };
  element("result").hidden = false;
  element("seek").max = before.duration;
  setMode(false);
  hear("before");
  await showSound(signal);
}

/** Draws and cleans the sound, as far as that has not been done. */
async function showSound(signal) {
  cleaning = true;
  try {
    if (sound.top === null) await analyse(signal);
    await clean(signal);
    cleaning = false;
  } catch (error) {
    cleaning = signal.aborted;
    throw error;
  }
}

async function analyse(signal) {
  const { before } = sound;
  const analysis = new Analysis(before.sampleRate);
  const levels = [];
  for (let x = 0; x < kColumns; ++x) {
    levels.push(analysis.levels(before.getChannelData(0), ((x + 0.5) * before.length) / kColumns));
    if (x % 50 === 0) await breath();
    signal.throwIfAborted();
  }
  // The loudest of ten thousand is the lightest.
  const sorted = Float32Array.from(levels.flatMap((each) => [...each])).sort();
  sound.top = Math.max(kLeastTop, sorted[Math.floor(sorted.length * 0.9999)]);
  pictures.before.begin(kColumns, before.sampleRate, sound.top);
  levels.forEach((each) => pictures.before.add(each));
  draw();
}

async function clean(signal) {
  const { before, name } = sound;
  const about = `${name}, ${minutes(before.duration)}, ${before.sampleRate} Hz`;
  tell(`${about}: cleaning …`, 0);
  setReady(null);
  const analysis = new Analysis(before.sampleRate);
  pictures.after.begin(kColumns, before.sampleRate, sound.top);
  let column = 0;
  const onBlock = (cleaned, samples) => {
    if (signal.aborted) return;
    element("progress").value = samples / before.length;
    const until = samples === before.length ? before.length : samples - analysis.size;
    const middle = () => ((column + 0.5) * before.length) / kColumns;
    for (; column < kColumns && middle() < until; ++column) {
      pictures.after.add(analysis.levels(cleaned.getChannelData(0), middle()));
    }
    pictures.after.draw();
  };
  const { buffer, voice } = await cleanBuffer(before, { ...options(), signal, onBlock });
  signal.throwIfAborted();
  sound.after = buffer;
  sound.voice = voice;
  sound.player.replace("after", buffer);
  setReady(sound);
  draw();
  tell(`${about}: cleaned.`);
}

async function startMicrophone(signal) {
  tell("Asking for the microphone …");
  const opened = await open(Microphone.open(options()), signal);
  if (signal.aborted) {
    opened.close();
    return;
  }
  sound?.player.close();
  sound = null;
  cleaning = false;
  microphone = opened;
  element("result").hidden = false;
  element("listen").checked = false;
  setMode(true);
  hear("after");
  for (const name of ["before", "after"]) pictures[name].begin(kLiveColumns, microphone.rate, kLiveTop);
  tell("The microphone is on. Speak, then press Stop.");
  document.body.dataset.ready = "live";
  microphone.onend = () => begin((next) => stopMicrophone(true, next));
  showMicrophone(microphone, [], new Analysis(microphone.rate));
}

function showMicrophone(shown, scores, analysis) {
  if (microphone !== shown) return;
  const { columns, before, after, score } = microphone.look(analysis);
  for (let n = 0; n < Math.min(columns, kLiveColumns); ++n) {
    pictures.before.add(before);
    pictures.after.add(after);
    scores.push(score);
    if (scores.length > kLiveColumns) scores.shift();
  }
  element("clock").textContent = minutes(microphone.seconds);
  for (const name of ["before", "after"]) pictures[name].draw();
  drawVoice(element("voice"), scores, kLiveColumns);
  requestAnimationFrame(() => showMicrophone(shown, scores, analysis));
}

async function stopMicrophone(keep, signal) {
  if (!microphone) return;
  const ending = microphone;
  microphone = null;
  const recorded = await ending.close();
  setMode(false);
  if (keep && recorded) await takeSound("microphone", recorded, signal);
  else {
    element("result").hidden = true;
    tell("");
  }
}

function hear(name) {
  heard = name;
  sound?.player.hear(name);
  if (microphone) microphone.hear(element("listen").checked ? name : null);
  controls.showHeard(name);
}

function draw() {
  for (const name of ["before", "after"]) pictures[name].draw();
  if (sound) drawVoice(element("voice"), sound.voice, sound.voice.length);
  showTime();
}

function showTime() {
  if (!sound) return;
  if (sound.player.playing && sound.player.time >= sound.player.duration) sound.player.stop();
  controls.showTime(sound.player);
}

function follow() {
  showTime();
  if (sound?.player.playing) requestAnimationFrame(follow);
}

function toggle() {
  if (!sound) return;
  if (sound.player.playing) sound.player.stop();
  else sound.player.start();
  follow();
}

function seek(seconds) {
  sound?.player.seek(seconds);
  showTime();
}

function wire() {
  const pick = element("file");
  element("choose").addEventListener("click", () => pick.click());
  pick.addEventListener("change", () => {
    const [file] = pick.files;
    pick.value = ""; // so that the same file can be chosen again
    if (file) begin((signal) => takeFile(file, signal));
  });
  element("microphone").addEventListener("click", () =>
    begin((signal) => (microphone ? stopMicrophone(true, signal) : startMicrophone(signal))),
  );
  document.addEventListener("dragover", (event) => {
    event.preventDefault();
    element("source").classList.add("over");
  });
  for (const name of ["dragleave", "drop"]) {
    document.addEventListener(name, () => element("source").classList.remove("over"));
  }
  document.addEventListener("drop", (event) => {
    event.preventDefault();
    const [file] = event.dataTransfer.files;
    if (file) begin((signal) => takeFile(file, signal));
  });

  const again = () => {
    if (!sound) return;
    cleaning = true;
    if (!opening) begin(showSound);
  };
  element("strength").addEventListener("input", () => {
    showStrength();
    microphone?.limitAttenuation(limit());
  });
  element("strength").addEventListener("change", again);
  element("model").addEventListener("change", again);

  element("play").addEventListener("click", toggle);
  element("listen").addEventListener("change", () => hear(heard));
  element("seek").addEventListener("input", () => seek(Number(element("seek").value)));
  for (const button of document.querySelectorAll("[data-heard]")) {
    button.addEventListener("click", () => hear(button.dataset.heard));
  }
  for (const plot of document.querySelectorAll(".plot")) {
    plot.addEventListener("click", (event) => {
      if (sound) seek((event.offsetX / plot.clientWidth) * sound.player.duration);
    });
  }
  document.addEventListener("keydown", (event) => {
    if (event.ctrlKey || event.metaKey || event.altKey || ["INPUT", "SELECT"].includes(event.target.tagName)) return;
    const jump = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (event.key === " " && !["BUTTON", "A", "SUMMARY"].includes(event.target.tagName)) {
      event.preventDefault();
      toggle();
    } else if (event.key === "1" || event.key === "2") hear(event.key === "1" ? "before" : "after");
    else if (jump && sound) seek(sound.player.time + jump);
  });
  window.addEventListener("resize", draw);
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
  showStrength();
}

wire();
