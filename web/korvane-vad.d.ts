/// <reference lib="dom" />
/// <reference lib="esnext.disposable" />
/**
 * Korvane VAD: finds where somebody speaks, and takes the steady noise out of the sound.
 *
 * Times are in seconds and in samples per channel of the input, from its first sample on. Results depend on the
 * samples alone, never on how they were cut into chunks, nor on the machine.
 */

/** Samples of -1..1, or of 16 bits. What is louder saturates; what is not a number is silence. */
export type SampleArray = Float32Array | Int16Array;

/** What push takes: one channel, or two interleaved; an array for each channel; a browser's AudioBuffer. */
export type Samples = SampleArray | readonly SampleArray[] | AudioBuffer | Recording;

/** A decoded file, as readWav and other decoders give it. */
export interface Recording {
  sampleRate: number;
  channelData: SampleArray[];
}

/** How speech is told from the rest. */
export interface Settings {
  /**
   * "adaptive" (default): a score from how the spectrum moves above the noise. It follows the noise and needs no
   * setting. "fixed": the level of the cleaned frame. "detector": the answers of libKorvaneVAD's
   * interface, bit for bit.
   */
  decision?: "adaptive" | "fixed" | "detector";
  /** Samples per channel of a frame, 1 to 4096; 10 ms by default. */
  frameLength?: number;
  /** Cleaned samples come back as loud as they went in (default), or as the suppressor leaves them. */
  restoreLevel?: boolean;
  /** adaptive: speech begins at this score, 0 to 1; 0.5 by default. */
  enterScore?: number;
  /** adaptive: and goes on above this one, at most enterScore; 0.4 by default. */
  stayScore?: number;
  /** fixed: speech begins above this level, -140 to 0 dB; -45 by default. */
  enterDb?: number;
  /** fixed: and goes on above this one, at most enterDb; -50 by default. */
  stayDb?: number;
  /** Time above the threshold before speech is declared; 0 by default. As all times: whole, 0 to 3600000 ms. */
  onsetMs?: number;
  /** Time below it before speech ends; 40 by default. */
  hangoverMs?: number;
  /** Shorter gaps between segments are filled; 0 by default. */
  minGapMs?: number;
  /** Shorter segments are dropped; 0 by default. */
  minSpeechMs?: number;
  /** Longer segments are split into equal parts; 0, the default, never. */
  maxSpeechMs?: number;
  /** Added before each segment, within the input; 0 by default. */
  padStartMs?: number;
  /** Added behind each segment, within the input; 0 by default. */
  padEndMs?: number;
}

export interface VadOptions extends Settings {
  /** Samples a second of each channel, 1 to 49999. */
  sampleRate: number;
  /** 1 (default) or 2. The suppressor hears the first channel and treats both alike. */
  channels?: number;
  /** Whether push and flush give cleaned samples; false by default. */
  cleaned?: boolean;
  /** Whether push and flush tell each frame; false by default. */
  frames?: boolean;
}

/** Of a whole recording: rate and channels are needed where the samples do not say them. */
export type RecordingOptions = Settings & { sampleRate?: number; channels?: number };

/** A stretch of speech, final when it is told. */
export interface Segment {
  start: number;
  end: number;
  startSample: number;
  /** Of the first sample behind it. */
  endSample: number;
  /** Whether the input ended before the speech did. */
  open: boolean;
}

/** Told as soon as the beginning is certain. */
export interface SpeechStart {
  type: "start";
  start: number;
  startSample: number;
}

/** Told when the end is certain: hangoverMs behind it or later, see minGapMs, padStartMs and padEndMs. */
export interface SpeechEnd extends Segment {
  type: "end";
}

export type SpeechEvent = SpeechStart | SpeechEnd;

/** What was decided on one frame. */
export interface Frame {
  start: number;
  startSample: number;
  /** In samples per channel; the last frame may be shorter. */
  length: number;
  speech: boolean;
  /** 0..1; with the decisions "fixed" and "detector" 1 for speech, 0 for none. */
  score: number;
  /** Of the cleaned frame; 0 dB is the loudest square wave, -140 silence. */
  levelDb: number;
  /** Of the noise in the input; -140 until there is an estimate. */
  noiseDb: number;
}

/** Of interleaved samples their type; of all other forms an array for each channel. */
export type Cleaned<Form> = unknown extends Form ? SampleArray | SampleArray[] : Form extends SampleArray ? Form : SampleArray[];

/** What a chunk brought. */
export interface Told<Form = unknown> {
  /** In order. */
  events: SpeechEvent[];
  /** Whether the last whole frame was speech. */
  speech: boolean;
  /** With `frames: true`. */
  frames?: Frame[];
  /**
   * With `cleaned: true`: what has become ready, in the type and layout of the input. Put one behind another, with
   * those of flush at the end, they are as long as the input, and each sample stands where it stood there.
   */
  cleaned?: Cleaned<Form>;
}

/** A stream of samples and what is heard in it. Any number may be open at once. */
export class Vad {
  /** Throws a TypeError or a RangeError that says which option is wrong. */
  static create(options: VadOptions): Promise<Vad>;
  private constructor();
  readonly sampleRate: number;
  readonly channels: number;
  /** Samples per channel by which cleaned samples are late: 720 below 25000 Hz, 867 from there on. */
  readonly delay: number;
  /** Whether the last whole frame was speech. */
  readonly speech: boolean;
  /** Whether vector instructions are used. */
  readonly vectors: boolean;
  /** Takes samples, any number of them. They are only read. */
  push<Form extends Samples>(samples: Form): Told<Form>;
  /** The input is over: tells what is still to come. Speech that goes on ends with the input. */
  flush(): Told;
  /** Begins anew with the same options. */
  reset(): void;
  /** Gives the memory back; a second time does nothing. */
  close(): void;
  /** The same as close, for `using`, where the platform has it. */
  [Symbol.dispose](): void;
}

/** The stretches of speech in a whole recording. */
export function detect(recording: Samples, options?: RecordingOptions): Promise<Segment[]>;

/**
 * A whole recording without its steady noise: as long as it was, nothing shifted, in the form it came in. Outside a
 * browser a library's AudioBuffer comes back as a Recording.
 */
export function clean<Form extends Samples>(recording: Form, options?: RecordingOptions): Promise<Form>;

/** Samples in, events out. */
export function vadStream(options: VadOptions): TransformStream<Samples, SpeechEvent>;

/** The events in a stream of samples, or in whatever else `for await` takes. */
export function events(readable: ReadableStream<Samples> | AsyncIterable<Samples> | Iterable<Samples>,
  options: VadOptions): AsyncGenerator<SpeechEvent, void, undefined>;

/** Reads a WAV file's bytes: PCM of 8 to 32 bits and floating point. */
export function readWav(bytes: Uint8Array | ArrayBuffer): Recording;

/** Called with what is heard live. */
export interface LiveCallbacks {
  /** Speech has begun. */
  onSpeechStart?(event: SpeechStart): void;
  /**
   * Speech is over. With `sound` other than "none" the spoken sound comes along: at the context's rate, from the
   * segment's start to its end, two channels interleaved.
   */
  onSpeechEnd?(sound: Float32Array | undefined, event: SpeechEnd): void;
  /** Asks for each frame. */
  onFrame?(frame: Frame): void;
  /** The audio worklet has failed. */
  onError?(error: Error): void;
}

export interface VadNodeOptions extends Settings, LiveCallbacks {
  /** 1 (default) or 2. */
  channels?: number;
  /** What onSpeechEnd is given: the sound as it came in (the default where there is an onSpeechEnd), the cleaned
   * sound, or none. With sound there is no maxSpeechMs. */
  sound?: "input" | "cleaned" | "none";
  /** Of a copy of korvane-vad/worklet.js, where a content security policy forbids blob:. */
  workletUrl?: string | URL;
}

/** Passes cleaned sound on, `delay` samples late. */
export interface VadNode extends AudioWorkletNode {
  /** In samples at the context's rate. */
  readonly delay: number;
  /** Begins anew; speech that goes on is forgotten. */
  reset(): void;
  /** The input is over: tells what is still to come, and stops the node. */
  close(): Promise<void>;
}

/** Makes an audio node that listens to its input. The context's rate is 49999 Hz at most. */
export function vadNode(context: BaseAudioContext, options?: VadNodeOptions): Promise<VadNode>;

export interface ListenOptions extends VadNodeOptions {
  /** Instead of the microphone. */
  stream?: MediaStream;
  /** What to ask of the microphone. By default one channel, with the browser's echo canceller and gain control. */
  audio?: MediaTrackConstraints;
  /** In Hz, such as 16000; the sound card's by default. Some browsers cannot bring a microphone to another rate. */
  sampleRate?: number;
  /** A context of the page's own, which is not closed. */
  audioContext?: AudioContext;
}

export interface Listener {
  readonly node: VadNode;
  readonly stream: MediaStream;
  readonly audioContext: AudioContext;
  readonly paused: boolean;
  /** The detector hears silence. */
  pause(): void;
  resume(): void;
  /** Tells what is still to come, then lets go of the microphone. */
  stop(): Promise<void>;
}

/**
 * Listens to the microphone. padStartMs is 300 here, padEndMs 100, minGapMs 500.
 *
 *     const listener = await listen({ onSpeechEnd: (sound) => send(sound) });
 */
export function listen(options?: ListenOptions): Promise<Listener>;
