/** The page's controls: what they say, and what is shown in them. */
import { kNoLimit } from "../index.js";
import { minutes, wavOf } from "./sound-file.js";

export const element = (id) => document.getElementById(id);
const kDetector = "orvel-vad";

/** What the settings ask of the cleaner. */
export const options = () => ({
  model: element("model").value || undefined,
  detector: kDetector,
  attenuationLimit: limit(),
});

/** The attenuation limit, dB. */
export function limit() {
  const { value, max } = element("strength");
  return value === max ? kNoLimit : Number(value);
}

/** @param progress 0 to 1; null for none. */
export function tell(status, progress = null) {
  if (element("status").textContent !== status) element("status").textContent = status;
  element("progress").hidden = progress === null;
  element("progress").value = progress ?? 0;
}

export function fail(error) {
  tell("");
  element("error").textContent = error.message.replace(/^orvel: /, "");
}

/** Offers the cleaned sound, { name, after }, or null for none. */
export function setReady(sound) {
  const ready = sound !== null;
  const link = element("download");
  if (link.href) URL.revokeObjectURL(link.href);
  link.removeAttribute("href");
  link.setAttribute("aria-disabled", String(!ready));
  if (ready) {
    link.href = URL.createObjectURL(wavOf(sound.after));
    link.download = `${sound.name.replace(/\.[^.]*$/, "")}-cleaned.wav`;
  }
  document.body.dataset.ready = ready ? "yes" : "no";
}

/** @param live whether the microphone is on. */
export function setMode(live) {
  document.body.classList.toggle("live", live);
  for (const id of ["play", "seek", "download"]) element(id).hidden = live;
  element("listen-label").hidden = !live;
  element("model").disabled = live;
  element("microphone").textContent = live ? "Stop" : "Use the microphone";
}

export function showStrength() {
  element("strength-text").textContent = limit() === kNoLimit ? "full" : `${limit()} dB at most`;
}

/** @param name of what is heard, "before" or "after". */
export function showHeard(name) {
  for (const button of document.querySelectorAll("[data-heard]")) {
    button.setAttribute("aria-pressed", String(button.dataset.heard === name));
  }
}

export function showTime(player) {
  element("play").textContent = player.playing ? "⏸" : "▶";
  element("play").ariaLabel = player.playing ? "Pause" : "Play";
  element("clock").textContent = `${minutes(player.time)} / ${minutes(player.duration)}`;
  element("seek").value = player.time;
  for (const head of document.querySelectorAll(".head")) head.style.left = `${(100 * player.time) / player.duration}%`;
}
