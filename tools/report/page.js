const data = JSON.parse(text("data"));
const element = (id) => document.getElementById(id);
const kColumns = 900;
const kSteps = [1, 2, 5, 10, 20, 30, 60];
const minutes = (s) => `${Math.floor(s / 60)}:${String(Math.floor(s % 60)).padStart(2, "0")}`;
const signed = (value, digits) => value.toFixed(digits).replace("-", "−");
const colour = (name) => getComputedStyle(document.documentElement).getPropertyValue(name);

// Colours from dark to light over a value from 0 to 1: of sound, and of what was lowered.
const kSound = [[8, 10, 32], [58, 20, 102], [158, 42, 99], [232, 98, 52], [252, 190, 72], [252, 252, 210]];
const kLowered = [[12, 16, 24], [14, 60, 92], [16, 124, 140], [98, 190, 140], [236, 240, 160]];
function shade(stops, value) {
  const at = Math.max(0, Math.min(0.9999, value)) * (stops.length - 1), i = Math.floor(at);
  return stops[i].map((low, c) => low + (stops[i + 1][c] - low) * (at - i));
}

function fit(canvas) {
  const ratio = window.devicePixelRatio || 1;
  canvas.width = Math.round(canvas.clientWidth * ratio);
  canvas.height = Math.round(canvas.clientHeight * ratio);
  const pen = canvas.getContext("2d");
  pen.font = `${11 * ratio}px system-ui, sans-serif`;
  return [pen, canvas.width, canvas.height, ratio];
}

function drawSpectrum(view, spectra, rate) {
  const [pen, width, height, ratio] = fit(element("spectrum"));
  const { bins, columns } = spectra.before, image = new ImageData(columns, bins);
  const top = spectra.top, lowered = view === "removed";
  for (let x = 0; x < columns; x++) {
    for (let b = 0; b < bins; b++) {
      const i = x * bins + b, before = Math.max(spectra.before.levels[i], top - 80);
      const value = lowered ? (before - Math.max(spectra.after.levels[i], top - 80)) / 40
        : (spectra[view].levels[i] - top + 80) / 80;
      image.data.set([...shade(lowered ? kLowered : kSound, value), 255], ((bins - 1 - b) * columns + x) * 4);
    }
  }
  const sheet = new OffscreenCanvas(columns, bins);
  sheet.getContext("2d").putImageData(image, 0, 0);
  pen.drawImage(sheet, 0, 0, width, height);
  // On a dark plate: the colours below may be light.
  const label = (words, x, y) => {
    const wide = pen.measureText(words).width, pad = 3 * ratio;
    pen.fillStyle = "#080a20b0";
    pen.fillRect(x - pad, y - 10 * ratio, wide + 2 * pad, 13 * ratio);
    pen.fillStyle = "#fff";
    pen.fillText(words, x, y);
  };
  for (const share of [0.25, 0.5, 0.75]) {
    label(`${(share * rate / 2000).toFixed(rate < 24000 ? 1 : 0)} kHz`, 6 * ratio, height * (1 - share) + 4 * ratio);
  }
  const step = kSteps.find((each) => data.duration / each < width / ratio / 70) ?? 120, first = Math.floor(data.start / step) + 1;
  for (let t = first * step; t < data.start + data.duration * 0.95; t += step) {
    label(minutes(t), width * (t - data.start) / data.duration, height - 6 * ratio);
  }
  element("spectrum-title").textContent = lowered ? "Lowered by: dark 0 dB, light 40 dB and more"
    : `Spectrogram ${view}, ${signed(top - 80, 0)} to ${signed(top, 0)} dBFS`;
}

function drawWave(samples, peak) {
  const [pen, width, height] = fit(element("wave"));
  pen.fillStyle = colour("--wave");
  for (let x = 0; x < width; x++) {
    let low = 0, high = 0;
    for (let i = Math.floor(x * samples.length / width); i < (x + 1) * samples.length / width; i++) {
      low = Math.min(low, samples[i]); high = Math.max(high, samples[i]);
    }
    const scale = 0.49 * height / peak;
    pen.fillRect(x, height / 2 - high * scale, 1, Math.max(1, (high - low) * scale));
  }
}

function drawVoice(scores) {
  const [pen, width, height] = fit(element("voice"));
  pen.fillStyle = colour("--voice");
  for (let x = 0; x < width; x++) {
    const score = scores[Math.floor(x * scores.length / width)] / 255;
    pen.fillRect(x, height * (1 - score), 1, height * score);
  }
}

function fillFigures() {
  const hertz = `${data.rate} Hz, ${data.channels} channel${data.channels === 1 ? "" : "s"}`;
  element("about").textContent = `${hertz}, ${data.duration.toFixed(1)} s` + (data.start ? ` from ${minutes(data.start)}` : "") +
    `, ${(100 * data.speech_seconds / data.duration).toFixed(0)} % speech; ` +
    (data.cleaned ? `beside ${data.cleaned}` : `cleaned by ${data.model}`) + `; ${data.program}`;
  const rows = [["Noise between words", "between_words_dbfs", "dBFS"], ["Speech", "speech_dbfs", "dBFS"],
    ["Loudness", "integrated_lufs", "LUFS"], ["Loudness range", "range_lu", "LU"], ["True peak", "true_peak_dbtp", "dBTP"]];
  for (const [title, key, unit] of rows) {
    const row = element("figures").tBodies[0].insertRow();
    row.appendChild(document.createElement("th")).textContent = `${title}, ${unit}`;
    const [before, after] = [data.before[key], data.after[key]], known = before !== null && after !== null;
    for (const value of [before, after, known ? after - before : null]) {
      row.insertCell().textContent = value === null ? "–" : signed(value, 1);
    }
  }
}

async function begin() {
  fillFigures();
  const names = ["before", "after", "removed"], sounds = {}, spectra = {};
  for (const name of names) sounds[name] = await decode(`sound-${name}`);
  const rate = sounds.before.sampleRate, scores = bytesOf("scores");
  for (const name of ["before", "after"]) spectra[name] = spectrogram(sounds[name].getChannelData(0), rate, kColumns);
  // The loudest hundredth of a percent is the top of the scale.
  spectra.top = spectra.before.levels.slice().sort()[Math.floor(spectra.before.levels.length * 0.9999)];
  const peak = sounds.before.getChannelData(0).reduce((most, x) => Math.max(most, Math.abs(x)), 1e-4);
  const player = new Player(sounds);
  const draw = () => {
    drawSpectrum(player.heard, spectra, rate);
    drawWave(sounds[player.heard].getChannelData(0), peak);
    drawVoice(scores);
  };
  const show = (name) => {
    player.hear(name);
    for (const button of document.querySelectorAll("[data-view]")) {
      button.setAttribute("aria-pressed", String(button.dataset.view === name));
    }
    draw();
  };
  const tick = () => {
    if (player.playing && player.time >= player.duration) player.stop();
    element("play").textContent = player.playing ? "⏸" : "▶";
    element("play").ariaLabel = player.playing ? "Stop" : "Play";
    element("clock").textContent = `${minutes(data.start + player.time)} / ${minutes(data.start + data.duration)}`;
    for (const head of document.querySelectorAll(".head")) head.style.left = `${100 * player.time / player.duration}%`;
    if (player.playing) requestAnimationFrame(tick);
  };
  const toggle = () => { if (player.playing) player.stop(); else player.start(); tick(); };
  const seek = (seconds) => { player.seek(seconds); tick(); };
  element("play").addEventListener("click", toggle);
  for (const button of document.querySelectorAll("[data-view]")) button.addEventListener("click", () => show(button.dataset.view));
  for (const plot of document.querySelectorAll(".plot")) {
    plot.addEventListener("click", (event) => seek(event.offsetX / plot.clientWidth * player.duration));
  }
  document.addEventListener("keydown", (event) => {
    const jump = { ArrowLeft: -1, ArrowRight: 1 }[event.key];
    if (event.key === " " && event.target.tagName !== "BUTTON") { event.preventDefault(); toggle(); }
    else if (["1", "2", "3"].includes(event.key)) show(names[event.key - 1]);
    else if (jump) seek(player.time + jump);
  });
  let waiting = 0;
  window.addEventListener("resize", () => { clearTimeout(waiting); waiting = setTimeout(draw, 150); });
  window.matchMedia("(prefers-color-scheme: dark)").addEventListener("change", draw);
  show(["before", "after", "removed"].includes(location.hash.slice(1)) ? location.hash.slice(1) : "before");
  tick();
  element("state").textContent = "";
  document.body.dataset.ready = "yes";
}

begin().catch((error) => { element("state").textContent = `The sounds cannot be read: ${error.message}`; });
