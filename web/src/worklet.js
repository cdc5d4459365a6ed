// The detector in an audio worklet. It passes cleaned sound on, tells events, and nothing else unless it is asked.
import { Engine } from "./engine.js";

/** Of the processor: with the version, so that two versions in a page do not meet. */
const NAME = `korvane-vad-${VERSION}`;

// One instance for all nodes of a context.
let engine = null;

function engineOf(bytes) {
  if (engine === null) {
    engine = new Engine();
    engine.start(new WebAssembly.Instance(new WebAssembly.Module(bytes), engine.imports));
  }
  return engine;
}

/** The sound of the last seconds, from which spoken sound is cut out. */
class Past {
  constructor(channels, length) {
    this.arrays = Array.from({ length: channels }, () => new Float32Array(length));
    this.length = length;
    this.end = 0; // of what is kept, in samples from the input's beginning
  }

  add(from, n) {
    const at = this.end % this.length;
    for (let c = 0; c < this.arrays.length; ++c) {
      const array = this.arrays[c];
      for (let i = 0, to = at; i < n; ++i, ++to) {
        array[to < this.length ? to : to - this.length] = from[c][i];
      }
    }
    this.end += n;
  }

  cut(start, end) {
    return this.arrays.map((array) => Float32Array.from({ length: end - start }, (_, i) => array[(start + i) % this.length]));
  }
}

class VadProcessor extends AudioWorkletProcessor {
  /** What the page hands over: see `processorOptions` in live.js. */
  constructor({ processorOptions }) {
    super();
    const { bytes, channels, settings, frames, sound, keep } = processorOptions;
    this.engine = engineOf(bytes);
    this.channels = channels;
    this.engine.settings().set(settings);
    this.place = this.engine.open(sampleRate, channels, frames);
    if (this.place < 0) {
      throw new RangeError(`a stream does not open (${this.place})`);
    }
    this.delay = this.engine.calls.korvane_stream_delay(this.place);
    this.told = []; // frames and events of one call, as arrays of numbers
    this.segments = []; // whose sound has not all been sent
    this.sound = sound;
    this.piece = Math.ceil(sampleRate); // sound is sent by the second, so that long speech fits too
    this.keep = keep; // how long after its last sample, or its first one, speech is told
    this.past = sound === "none" ? null : new Past(channels, keep + 3 * this.piece);
    this.late = sound === "cleaned" ? this.delay : 0;
    this.views = null;
    this.done = false;
    this.port.onmessage = ({ data }) => this.obey(data);
  }

  onFrame(...frame) {
    this.told.push(["frame", ...frame]);
  }

  onEvent(kind, open, position, start) {
    this.told.push(["event", kind, open, position, start]);
    if (this.past === null) {
      return;
    }
    if (kind === 1) {
      this.segments.push({ start, sent: start, end: Infinity });
    } else {
      this.segments.at(-1).end = position;
    }
  }

  /** Of n samples, in the module's memory: what has come in is overwritten with what is clean. */
  hear(n) {
    const { engine: { calls }, views } = this;
    this.engine.hearer = this;
    if (this.sound === "input") {
      this.past.add(views, n);
    }
    calls.module_process(this.place, n, 1, 1);
    this.keepCleaned(n);
    this.engine.hearer = null;
  }

  keepCleaned(n) {
    if (this.sound === "cleaned") {
      this.past.add(this.views, n);
    }
  }

  /** In a function of its own: for what an inner function sees, each call of the outer one allocates. */
  look(n) {
    this.views = this.engine.samples(true).map((one) => one.subarray(0, n));
  }

  // Allocates nothing while nothing is told.
  process(inputs, outputs) {
    if (this.done) {
      return false;
    }
    const input = inputs[0];
    const output = outputs[0];
    const n = output[0].length;
    if (this.views === null || this.views[0].length !== n) { // the first time, and when the memory has grown
      this.look(n);
    }
    for (let c = 0; c < this.channels; ++c) {
      if (c < input.length) {
        this.views[c].set(input[c]);
      } else {
        this.views[c].fill(0); // nothing is connected
      }
    }
    this.hear(n);
    for (let c = 0; c < this.channels; ++c) {
      output[c].set(this.views[c]);
    }
    this.tell();
    return true;
  }

  /** Sends what has been told, and sound that is due. */
  tell() {
    if (this.told.length > 0) {
      this.port.postMessage({ told: this.told });
      this.told = [];
    }
    while (this.segments.length > 0) {
      const segment = this.segments[0];
      const known = this.past.end - this.late;
      const whole = segment.end <= known;
      // The end, when it is told, may lie some way back.
      const ready = whole ? segment.end : Math.min(segment.end, known - this.keep);
      if (!whole && ready - segment.sent < this.piece) {
        return;
      }
      const sound = this.past.cut(segment.sent + this.late, ready + this.late);
      this.port.postMessage({ sound, start: segment.start, whole }, sound.map(({ buffer }) => buffer));
      segment.sent = ready;
      if (!whole) {
        return;
      }
      this.segments.shift();
    }
  }

  obey(what) {
    if (this.done) {
      return;
    }
    if (what === "reset") {
      this.engine.calls.korvane_stream_reset(this.place);
      this.segments = [];
      if (this.past !== null) {
        this.past.end = 0;
      }
      this.port.postMessage({ reset: true });
      return;
    }
    // The end: what speech goes on ends here.
    const { engine: { calls } } = this;
    this.engine.hearer = this;
    calls.module_end(this.place, 1, 1);
    this.views = this.engine.samples(true);
    this.keepCleaned(this.delay);
    this.engine.hearer = null;
    this.tell();
    this.engine.close(this.place);
    this.done = true;
    this.port.postMessage({ closed: true });
  }
}

try {
  registerProcessor(NAME, VadProcessor);
} catch {
  // A second copy of this package has come to the same context; the first one's does the same.
}
