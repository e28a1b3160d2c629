/** Sound files in and out. Errors are texts for the reader of the page. */
import { kSampleRates } from "../index.js";

/** Longest sound that the page takes, seconds: before and after lie in memory as floats. */
export const kMostSeconds = 20 * 60;

export const minutes = (seconds) =>
  `${Math.floor(seconds / 60)}:${String(Math.floor(seconds % 60)).padStart(2, "0")}`;

/**
 * Decodes a file at its own rate where that can be cleaned and read from its first bytes (WAV, FLAC), else at the
 * next higher rate or at 48 kHz.
 */
export async function readSound(file) {
  if (file.size === 0) throw new Error(`${file.name} is empty.`);
  const unreadable = new Error(`${file.name} is not a sound file that this browser can read.`);
  const seconds = await durationOf(file).catch(() => {
    throw unreadable;
  });
  if (seconds > kMostSeconds) throw tooLong(file.name, seconds);
  const bytes = await file.arrayBuffer();
  const rate = rateOf(new DataView(bytes));
  const sound = await new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes).catch(() => {
    throw unreadable;
  });
  if (sound.length === 0) throw new Error(`${file.name} holds no sound.`);
  if (sound.duration > kMostSeconds) throw tooLong(file.name, sound.duration);
  return sound;
}

function tooLong(name, seconds) {
  return new Error(
    `${name} is too long: it lasts ${minutes(seconds)}, this page takes up to ${minutes(kMostSeconds)}. ` +
      "The orvel command cleans files of any length.",
  );
}

// From the file's head, so that nothing long is decoded in vain. Some recordings do not state it: they count as short.
function durationOf(file) {
  const probe = new Audio();
  const address = URL.createObjectURL(file);
  return new Promise((resolve, reject) => {
    probe.onloadedmetadata = () => resolve(Number.isFinite(probe.duration) ? probe.duration : 0);
    probe.onerror = reject;
    probe.preload = "metadata";
    probe.src = address;
  }).finally(() => {
    probe.removeAttribute("src");
    URL.revokeObjectURL(address);
  });
}

function rateOf(head) {
  const tag = (at) => (at + 4 <= head.byteLength ? head.getUint32(at) : 0);
  let rate = 48000;
  if (tag(0) === 0x664c6143) rate = tag(18) >>> 12; // "fLaC", 20 bits behind the block sizes
  if (tag(0) === 0x52494646 && tag(8) === 0x57415645) {
    // "RIFF", "WAVE": look for "fmt "
    for (let at = 12; at + 16 <= head.byteLength; at += 8 + head.getUint32(at + 4, true)) {
      if (tag(at) !== 0x666d7420) continue;
      rate = head.getUint32(at + 12, true);
      break;
    }
  }
  return kSampleRates.find((known) => known >= rate) ?? 48000;
}

/** A WAV file with 16 bits. */
export function wavOf(sound) {
  const { length, numberOfChannels: channels, sampleRate } = sound;
  const size = 2 * channels * length;
  const bytes = new DataView(new ArrayBuffer(44 + size));
  let at = 0;
  const put = (value, width = 4) => {
    if (typeof value === "string") for (const letter of value) bytes.setUint8(at++, letter.charCodeAt(0));
    else {
      bytes[width === 2 ? "setUint16" : "setUint32"](at, value, true);
      at += width;
    }
  };
  ["RIFF", 36 + size, "WAVE", "fmt ", 16].forEach((value) => put(value));
  put(1, 2);
  put(channels, 2);
  put(sampleRate);
  put(2 * channels * sampleRate);
  put(2 * channels, 2);
  put(16, 2);
  put("data");
  put(size);
  const samples = new Int16Array(bytes.buffer, at);
  for (let c = 0; c < channels; ++c) {
    const from = sound.getChannelData(c);
    for (let i = 0; i < length; ++i) {
      samples[i * channels + c] = Math.max(-32768, Math.min(32767, Math.round(32768 * from[i])));
    }
  }
  return new Blob([bytes], { type: "audio/wav" });
}
