// One instance of the WebAssembly module, with as many streams in its memory as are open. Pages, servers and the
// audio worklet share it.

const ALIGNMENT = 32; // of a stream, in bytes
const PAGES = 16; // by which the memory grows: 1 MB, some 60 streams

/** The library's errors by name. */
export const ERROR = { rate: -3, channels: -4, frameLength: -5, threshold: -7, time: -8, ended: -14, score: -17 };

/** The order in which the module keeps its settings. */
export const SETTINGS = ["frameLength", "decision", "restoreLevel", "enterScore", "stayScore", "enterDb", "stayDb",
  "onsetMs", "hangoverMs", "minGapMs", "minSpeechMs", "maxSpeechMs", "padStartMs", "padEndMs"];

/** Bytes from their hexadecimal digits, in which texts the package keeps its modules. */
export function bytesOf(digits) {
  const bytes = new Uint8Array(digits.length / 2);
  const value = (code) => code > 57 ? code - 87 : code - 48;
  for (let i = 0; i < bytes.length; ++i) {
    bytes[i] = 16 * value(digits.charCodeAt(2 * i)) + value(digits.charCodeAt(2 * i + 1));
  }
  return bytes;
}

export class Engine {
  #free = [];
  #end = 0;
  #samples = null;

  /** Who hears of frames and events: whoever calls sets it first. It has onFrame and onEvent. */
  hearer = null;

  /** What the module asks for. */
  imports = {
    env: {
      told_result: (...result) => this.hearer.onFrame(...result),
      told_event: (...event) => this.hearer.onEvent(...event),
    },
  };

  /** To be called once, with an instance that was made with these imports. */
  start(instance) {
    this.calls = instance.exports;
    this.piece = this.calls.module_piece();
    this.size = this.calls.korvane_stream_size();
    this.#end = Math.ceil(this.calls.__heap_base.value / ALIGNMENT) * ALIGNMENT;
    return this;
  }

  /** The settings in the module's memory; valid until the next stream opens. */
  settings() {
    return new Float64Array(this.calls.memory.buffer, this.calls.module_settings(), SETTINGS.length);
  }

  /** Opens a stream as the settings say. Gives its address, or an error below zero. */
  open(rate, channels, wantsFrames) {
    const { memory } = this.calls;
    const place = this.#free.pop() ?? this.#end;
    if (place + this.size > memory.buffer.byteLength) {
      memory.grow(PAGES); // or throws
    }
    const error = this.calls.module_open(place, rate, channels, wantsFrames ? 1 : 0);
    if (place === this.#end) {
      this.#end += this.size;
    }
    if (error < 0) {
      this.close(place);
      return error;
    }
    return place;
  }

  close(place) {
    this.#free.push(place);
  }

  /** Where samples go in and come out: an array of `piece` samples for each of two channels. */
  samples(isFloat) {
    // When the memory grows, arrays on it shrink to nothing. To ask for its buffer would allocate, each time.
    if (this.#samples === null || this.#samples.ints[0].length === 0) {
      const { buffer } = this.calls.memory;
      const at = this.calls.module_samples();
      const both = (Type) => [0, 1].map((c) => new Type(buffer, at + c * this.piece * Type.BYTES_PER_ELEMENT, this.piece));
      this.#samples = { floats: both(Float32Array), ints: both(Int16Array) };
    }
    return isFloat ? this.#samples.floats : this.#samples.ints;
  }
}
