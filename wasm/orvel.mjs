/**
 * ORVEL in WebAssembly, for browsers (AudioWorklets included) and node. Nothing of the host is used but
 * WebAssembly itself.
 *
 *   const orvel = new Orvel(await WebAssembly.compileStreaming(fetch("orvel.wasm")));
 *   orvel.loadModel("voice", controlBytes, weightBytes);
 *   const cleaner = orvel.createCleaner("voice", 48000);
 *   cleaner.input.set(samples);  // 480 floats, full scale 1
 *   if (cleaner.process()) play(cleaner.output);
 *
 * For an AudioWorklet, compile the module on the main thread, hand it over in processorOptions with the
 * models' bytes, and make the Orvel there. Make sessions before the audio starts: process() allocates
 * nothing, the constructor and all that loads or creates does.
 */
export class Orvel {
  #context;

  /** @param module a WebAssembly.Module of orvel.wasm. */
  constructor(module) {
    const failing = () => 52; // "function not supported": there are no files
    const host = {
      proc_exit: (status) => {
        throw new Error(`orvel: ended with status ${status}`);
      },
    };
    const imports = {};
    for (const { module: from, name } of WebAssembly.Module.imports(module)) {
      imports[from] ??= {};
      imports[from][name] = host[name] ?? (name === "emscripten_notify_memory_growth" ? () => {} : failing);
    }
    this.functions = new WebAssembly.Instance(module, imports).exports;
    this.functions._initialize();
    this.#context = this.#withText("", (text) => this.functions.Orv_Context_Create(text));
    if (this.#context === 0) throw new Error("orvel: out of memory");
  }

  get version() {
    return this.#textAt(this.functions.Orv_SDK_GetVersion());
  }

  /**
   * Loads a model under a name.
   * @param control, weights Uint8Arrays: the bytes of NAME.ctl and NAME.bin.
   */
  loadModel(name, control, weights) {
    const status = this.#withBytes(control, (c) =>
      this.#withBytes(weights, (w) =>
        this.#withText(name, (n) =>
          this.functions.Orv_Context_SetModelFromMemory(this.#context, c, control.length, w, weights.length, n),
        ),
      ),
    );
    if (status !== 0) throw this.#lastError(`${name}: `);
  }

  /** Opens a session that cleans frames of frameMs (10, 20, 30 or 40) at the sample rate. */
  createCleaner(model, sampleRate, frameMs = 10) {
    const session = this.#withText(model, (name) =>
      this.functions.Orv_Context_CreateCleaner(this.#context, sampleRate, sampleRate, frameMs, name),
    );
    if (session === 0) throw this.#lastError();
    const size = Math.floor((sampleRate * frameMs) / 1000);
    return new Session(this.functions, session, size, size, "Orv_NC_CleanAmbientNoiseFloat", "NC");
  }

  /** Opens a session that scores voice activity: one value per frame. */
  createDetector(model, sampleRate, frameMs = 10) {
    const session = this.#withText(model, (name) =>
      this.functions.Orv_Context_CreateDetector(this.#context, sampleRate, frameMs, name),
    );
    if (session === 0) throw this.#lastError();
    const size = Math.floor((sampleRate * frameMs) / 1000);
    return new Session(this.functions, session, size, 1, "Orv_VAD_ProcessFloat", "VAD");
  }

  /** Closes every session and frees all models. */
  close() {
    this.functions.Orv_Context_Destroy(this.#context);
  }

  #lastError(what = "") {
    return new Error(`orvel: ${what}${this.#textAt(this.functions.Orv_Context_LastError(this.#context))}`);
  }

  // AudioWorklets have no TextDecoder. Names are bytes; those beyond ASCII go through UTF-8 elsewhere.
  #textAt(address) {
    const bytes = new Uint8Array(this.functions.memory.buffer);
    let text = "";
    for (let i = address; bytes[i] !== 0; ++i) text += String.fromCharCode(bytes[i]);
    return text;
  }

  #withText(text, use) {
    return this.#withBytes(Uint8Array.from(`${text}\0`, (letter) => letter.charCodeAt(0)), use);
  }

  #withBytes(bytes, use) {
    const address = this.functions.malloc(bytes.length);
    if (address === 0) throw new Error("orvel: out of memory");
    new Uint8Array(this.functions.memory.buffer).set(bytes, address);
    try {
      return use(address);
    } finally {
      this.functions.free(address);
    }
  }
}

/** An open session with a frame of floats before and one behind it. Close it after use. */
class Session {
  #functions;
  #session;
  #process;
  #kind;
  #buffer;
  #at;
  #inputSize;
  #outputSize;
  #input;
  #output;

  constructor(functions, session, inputSize, outputSize, process, kind) {
    this.#functions = functions;
    this.#session = session;
    this.#process = functions[process];
    this.#kind = kind;
    this.#inputSize = inputSize;
    this.#outputSize = outputSize;
    this.#at = functions.malloc(4 * (inputSize + outputSize + 1));
    if (this.#at === 0) throw new Error("orvel: out of memory");
    this.#findMemory();
    this.#clear();
  }

  /** Samples per call, full scale 1. Memory that has grown since is found again: take it anew for each frame. */
  get input() {
    this.#findMemory();
    return this.#input;
  }

  /** Samples of the last frame, or its one score. */
  get output() {
    this.#findMemory();
    return this.#output;
  }

  /** Processes the input; false when the frame could not be processed, its output is then silent. */
  process() {
    const output = this.#at + 4 * this.#inputSize;
    const status =
      this.#kind === "NC"
        ? this.#process(this.#session, this.#at, this.#inputSize, output, this.#outputSize)
        : this.#process(this.#session, this.#at, this.#inputSize, output);
    return status === 0;
  }

  /** Delay of a cleaner's output in samples. */
  get latency() {
    const place = this.#at + 4 * (this.#inputSize + this.#outputSize);
    if (this.#functions.Orv_NC_GetLatency(this.#session, place) !== 0) return 0;
    return new Uint32Array(this.#functions.memory.buffer, place, 1)[0];
  }

  /** Lowers no bin by more than that; false for a negative number or NaN. */
  limitAttenuation(decibels) {
    return this.#functions.Orv_NC_SetAttenuationLimit(this.#session, decibels) === 0;
  }

  /** Forgets the audio so far. */
  reset() {
    this.#functions[`Orv_${this.#kind}_ResetSession`](this.#session);
    this.#findMemory();
    this.#clear();
  }

  close() {
    this.#functions[`Orv_${this.#kind}_CloseSession`](this.#session);
    this.#functions.free(this.#at);
  }

  // Memory comes with what lay there before.
  #clear() {
    this.#input.fill(0);
    this.#output.fill(0);
  }

  #findMemory() {
    const buffer = this.#functions.memory.buffer;
    if (buffer === this.#buffer) return;
    this.#buffer = buffer;
    this.#input = new Float32Array(buffer, this.#at, this.#inputSize);
    this.#output = new Float32Array(buffer, this.#at + 4 * this.#inputSize, this.#outputSize);
  }
}
