/** An attenuation limit, dB, from which on there is none. */
export const kNoLimit: 100;

/** Sample rates that can be cleaned, Hz. */
export const kSampleRates: readonly number[];

/** The model for a sample rate (Hz): as `orvel clean` chooses it. */
export function modelFor(rate: number): string;

export interface Options {
  /** A model below models/, without suffix. Default: modelFor(rate). */
  model?: string;
  /** The model that scores voice activity, "orvel-vad". Default: none, and no scores. */
  detector?: string | null;
  /** dB from 0 to kNoLimit: no frequency is lowered by more. Default: kNoLimit. */
  attenuationLimit?: number;
  /** The folder of the package's files. Default: that of index.js. */
  base?: string | URL;
}

export interface NodeOptions extends Options {
  /** Channels, each cleaned on its own. Default: 1, to which other inputs are mixed. */
  channels?: number;
}

export interface BufferOptions extends Options {
  /** Stops the work; the promise is rejected with the signal's reason. */
  signal?: AbortSignal;
  /** Called about once a second of sound: `cleaned` holds the first `samples` of each channel. */
  onBlock?: (cleaned: AudioBuffer, samples: number) => void;
}

export class CleanerNode extends AudioWorkletNode {
  /** Samples by which output 0 lags behind the input; constant. */
  readonly latency: number;
  /** dB, read once a block; kNoLimit: no limit. */
  readonly attenuationLimit: AudioParam;
  /** The last score of voice activity, 0 to 1, of audio some 30 ms ago; 0 before the first, NaN without a detector. */
  readonly voiceScore: number;
  /** Ends the processing for good; its memory is freed. */
  close(): void;
}

/**
 * A node that cleans its input. Output 0: the cleaned channels; output 1: the voice score as a signal.
 * Rejected with an Error for a context without AudioWorklet, a rate that is not one of kSampleRates, a file that
 * cannot be fetched and a model that is damaged; nothing is left behind then.
 */
export function createCleaner(context: BaseAudioContext, options?: NodeOptions): Promise<CleanerNode>;

/**
 * Cleans a whole sound in a Worker: the same length and rate, with the latency taken out. `voice`: a score for each
 * 10 ms, or null without a detector. Errors as createCleaner.
 */
export function cleanBuffer(
  buffer: AudioBuffer,
  options?: BufferOptions,
): Promise<{ buffer: AudioBuffer; voice: Float32Array | null }>;
