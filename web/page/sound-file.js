/** Sound files in and out. Errors are texts for the reader of the page. */
import { kSampleRates } from "../index.js";

/** Longest sound that the page takes, seconds: before and after lie in memory as floats. */
export const kMostSeconds = 20 * 60;

export const minutes = (seconds) =>
  `${Math.floor(seconds / 60)}:${String(Math.floor(seconds % 60)).padStart(2, "0")}`;

/**
 * Reads a file at its own rate where that can be cleaned and stands in its head (WAV, FLAC), else at the next higher
 * rate or at 48 kHz.
 */
export async function readSound(file) {
  if (file.size === 0) throw new Error(`${file.name} is empty.`);
  const unreadable = new Error(`${file.name} is not a sound file that this browser can read.`);
  const seconds = await durationOf(file).catch(() => {
    throw unreadable;
  });
  if (seconds > kMostSeconds) throw tooLong(file.name, seconds);
  const bytes = await file.arrayBuffer();
  const head = headOf(new DataView(bytes));
  const rate = kSampleRates.find((known) => known >= head.rate) ?? 48000;
  const sound =
    exactSound(head) ??
    (await new OfflineAudioContext(1, 1, rate).decodeAudioData(bytes).catch(() => {
      throw unreadable;
    }));
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

// What the first bytes tell: the rate, and of a WAV file its samples' format and place.
function headOf(bytes) {
  const tag = (at) => (at + 4 <= bytes.byteLength ? bytes.getUint32(at) : 0);
  if (tag(0) === 0x664c6143) return { rate: tag(18) >>> 12 }; // "fLaC", 20 bits
  if (tag(0) !== 0x52494646 || tag(8) !== 0x57415645) return { rate: 48000 }; // "RIFF", "WAVE"
  let head = { rate: 48000 };
  for (let at = 12; at + 8 <= bytes.byteLength; ) {
    const size = bytes.getUint32(at + 4, true);
    const room = Math.min(size, bytes.byteLength - at - 8);
    if (tag(at) === 0x666d7420 && room >= 16) {
      // "fmt "; of the extensible format the code that counts comes later
      const code = bytes.getUint16(at + 8, true);
      head = {
        rate: bytes.getUint32(at + 12, true),
        channels: bytes.getUint16(at + 10, true),
        bits: bytes.getUint16(at + 22, true),
        code: code === 0xfffe && room >= 26 ? bytes.getUint16(at + 32, true) : code,
      };
    }
    if (tag(at) === 0x64617461) return { ...head, data: new DataView(bytes.buffer, at + 8, room) }; // "data"
    at += 8 + size + (size % 2);
  }
  return head;
}

const kReaders = {
  "1 16": (data, at) => data.getInt16(at, true) / 2 ** 15,
  "1 24": (data, at) => (data.getInt8(at + 2) * 2 ** 16 + data.getUint16(at, true)) / 2 ** 23,
  "1 32": (data, at) => data.getInt32(at, true) / 2 ** 31,
  "3 32": (data, at) => data.getFloat32(at, true),
};

// The samples of a WAV file as they are: browsers scale the positive ones of 16 bits by 1/32767. Null for others.
function exactSound({ rate, channels, bits, code, data }) {
  const read = kReaders[`${code} ${bits}`];
  const width = (channels * bits) / 8;
  const length = data ? Math.floor(data.byteLength / width) : 0;
  if (!read || !(length > 0) || !kSampleRates.includes(rate)) return null;
  const sound = new AudioBuffer({ length, numberOfChannels: channels, sampleRate: rate });
  for (let c = 0; c < channels; ++c) {
    const samples = sound.getChannelData(c);
    for (let i = 0; i < length; ++i) samples[i] = read(data, i * width + (c * bits) / 8);
  }
  return sound;
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
