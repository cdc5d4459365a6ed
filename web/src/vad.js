// Detectors for pages and servers: samples in, events and cleaned samples out.
import { bytesOf, Engine, ERROR, SETTINGS } from "./engine.js";
import { modules } from "korvane-modules";
import { nameOf, samplesOf, takeApart } from "./samples.js";

const DECISIONS = ["adaptive", "fixed", "detector"];
const SWITCHES = ["restoreLevel", "cleaned", "frames"];
const WHOLE = ["frameLength", "onsetMs", "hangoverMs", "minGapMs", "minSpeechMs", "maxSpeechMs", "padStartMs", "padEndMs"];

let loading = null;

/** The module, compiled once, with vectors where there are such. */
export function loadEngine() {
  loading ??= load().catch((error) => {
    loading = null;
    throw error;
  });
  return loading;
}

async function load() {
  let cause;
  for (const name of ["vectors", "scalar"]) {
    const engine = new Engine();
    try {
      const bytes = bytesOf(modules[name]);
      const { instance } = await WebAssembly.instantiate(bytes, engine.imports);
      return Object.assign(engine.start(instance), { bytes, vectors: name === "vectors" });
    } catch (error) {
      cause = error;
    }
  }
  throw new Error("WebAssembly does not start here; where the page has a content security policy, its script-src " +
    `needs 'wasm-unsafe-eval' (${cause.message})`, { cause });
}

const show = (value) => typeof value === "string" ? `"${value}"` : nameOf(value);

function numberIn(options, name) {
  const value = options[name];
  if (typeof value !== "number") {
    throw new TypeError(`${name} must be a number, not ${show(value)}`);
  }
  // The module would wrap what has no place in 32 bits.
  if (!Number.isFinite(value) || (WHOLE.includes(name) && value !== (value | 0))) {
    throw new RangeError(`${name} must be a ${WHOLE.includes(name) ? "whole number of 32 bits" : "finite number"}, not ${value}`);
  }
  return value;
}

function fail(error, options, rate, channels) {
  const of = (...names) => names.map((name) => `${name} ${options[name] ?? "by default"}`).join(", ");
  const text = {
    [ERROR.rate]: `sampleRate must be a whole number from 1 to 49999 Hz, not ${rate}: resample the sound first, in a browser with an ` +
      "OfflineAudioContext or an AudioContext({ sampleRate: 48000 })",
    [ERROR.channels]: `channels must be 1 or 2, not ${channels}: mix the sound down first, or hand over two of its channels`,
    [ERROR.frameLength]: `frameLength must be from 1 to 4096 samples, not ${options.frameLength}`,
    [ERROR.threshold]: `enterDb and stayDb must be from -140 to 0, stayDb not above enterDb: ${of("enterDb", "stayDb")}`,
    [ERROR.score]: `enterScore and stayScore must be from 0 to 1, stayScore not above enterScore: ${of("enterScore", "stayScore")}`,
    [ERROR.time]: `times must be from 0 to 3600000 ms: ${of(...WHOLE.slice(1).filter((name) => name in options))}`,
  }[error];
  throw new RangeError(text ?? `the module refuses the options (${error})`);
}

/** Writes options over the defaults into the module's settings and opens a stream: gives its address. */
function open(engine, options) {
  if (typeof options !== "object" || options === null) {
    throw new TypeError(`options must be an object such as { sampleRate: 16000 }, not ${show(options)}`);
  }
  const known = ["sampleRate", "channels", ...SETTINGS, "cleaned", "frames"];
  for (const name of Object.keys(options)) {
    if (!known.includes(name)) {
      throw new TypeError(`there is no option ${name}; there are ${known.join(", ")}`);
    }
  }
  const given = Object.fromEntries(Object.entries(options).filter(([, value]) => value !== undefined));
  if (!("sampleRate" in given)) {
    throw new TypeError("sampleRate is missing: how many samples a second the sound has, such as { sampleRate: 16000 }");
  }
  const rate = numberIn(given, "sampleRate");
  const channels = "channels" in given ? numberIn(given, "channels") : 1;
  const whole = (value) => value === (value | 0) ? value : 0; // which no rate is, and no number of channels
  const refused = engine.calls.module_defaults(whole(rate), whole(channels));
  if (refused < 0) {
    fail(refused, given, rate, channels);
  }
  const settings = engine.settings();
  SETTINGS.forEach((name, i) => {
    if (!(name in given)) {
      return;
    }
    if (name === "decision") {
      settings[i] = DECISIONS.indexOf(given.decision);
      if (settings[i] < 0) {
        throw new RangeError(`decision must be one of ${DECISIONS.map(show).join(", ")}, not ${show(given.decision)}`);
      }
    } else if (!SWITCHES.includes(name)) {
      settings[i] = numberIn(given, name);
    }
  });
  for (const name of SWITCHES) {
    if (name in given && typeof given[name] !== "boolean") {
      throw new TypeError(`${name} must be true or false, not ${show(given[name])}`);
    }
  }
  if ("restoreLevel" in given) {
    settings[SETTINGS.indexOf("restoreLevel")] = Number(given.restoreLevel);
  }
  let place;
  try {
    place = engine.open(rate, channels, given.frames === true);
  } catch (cause) {
    throw new RangeError("there is no memory for one more Vad; close those that are done", { cause });
  }
  return place < 0 ? fail(place, given, rate, channels) : { place, rate, channels };
}

/** The settings as numbers, for the worklet; throws what Vad.create would. */
export function settingsOf(engine, options) {
  const { place, ...stream } = open(engine, options);
  const settings = Array.from(engine.settings());
  const delay = engine.calls.korvane_stream_delay(place);
  engine.close(place);
  return { ...stream, settings, delay };
}

// A Vad that nobody closes gives its memory back when it is collected.
const forgotten = new FinalizationRegistry(({ engine, place }) => engine.close(place));

/** Tells of frames and events in the way of this package. */
export class Reports {
  events = [];
  frames = [];

  constructor(rate) {
    this.rate = rate;
  }

  onFrame(position, length, speech, score, levelDb, noiseDb) {
    this.frames.push({ start: position / this.rate, startSample: position, length, speech: speech === 1, score, levelDb, noiseDb });
  }

  onEvent(kind, open, position, start) {
    const begin = { start: start / this.rate, startSample: start };
    this.events.push(kind === 1 ? { type: "start", ...begin } :
      { type: "end", ...begin, end: position / this.rate, endSample: position, open: open === 1 });
  }
}

export class Vad {
  #engine;
  #place;
  #options;
  #speech;
  #skip; // cleaned samples that come before the input
  #ended;
  #shape; // of the samples that came last: cleaned ones come back in it

  static async create(options) {
    return new Vad(await loadEngine(), options);
  }

  constructor(engine, options) {
    if (!(engine instanceof Engine)) {
      throw new TypeError("a Vad is made by: await Vad.create({ sampleRate: 16000 })");
    }
    const { place, rate, channels } = open(engine, options);
    this.#engine = engine;
    this.#place = place;
    this.#options = { ...options, sampleRate: rate, channels };
    forgotten.register(this, { engine, place }, this);
    this.#begin();
  }

  #begin() {
    this.#speech = false;
    this.#skip = this.delay;
    this.#ended = false;
    this.#shape = { isFloat: true, isPlanar: false };
  }

  get sampleRate() { return this.#options.sampleRate; }
  get channels() { return this.#options.channels; }
  get speech() { return this.#speech; }
  get vectors() { return this.#engine.vectors; }
  get delay() { return this.#engine.calls.korvane_stream_delay(this.#opened()); }

  push(samples) {
    const place = this.#opened();
    if (this.#ended) {
      throw new TypeError("the input has ended with flush(); reset() begins anew");
    }
    const input = samplesOf(samples, this.sampleRate, this.channels);
    this.#shape = input.shape;
    const { isFloat } = input.shape;
    const { piece, calls } = this.#engine;
    return this.#report(input.length, (output) => {
      for (let at = 0; at < input.length; at += piece) {
        const n = Math.min(piece, input.length - at);
        input.read(this.#engine.samples(isFloat), at, n);
        this.#speech = calls.module_process(place, n, Number(isFloat), Number(output !== null)) === 1;
        output?.write(this.#engine.samples(isFloat), n);
      }
    });
  }

  flush() {
    const place = this.#opened();
    if (this.#ended) {
      throw new TypeError("the input has ended already; reset() begins anew");
    }
    const { delay } = this;
    const { isFloat } = this.#shape;
    return this.#report(delay, (output) => {
      this.#ended = true;
      this.#speech = this.#engine.calls.module_end(place, Number(isFloat), Number(output !== null)) === 1;
      output?.write(this.#engine.samples(isFloat), delay);
    });
  }

  /** Runs what processes n samples and gathers what it tells. */
  #report(n, run) {
    const reports = new Reports(this.sampleRate);
    const skip = Math.min(this.#skip, n);
    const output = this.#options.cleaned ? takeApart(this.#shape, this.channels, n - skip, skip) : null;
    this.#skip -= skip;
    this.#engine.hearer = reports;
    run(output);
    this.#engine.hearer = null;
    const result = { events: reports.events, speech: this.#speech };
    if (this.#options.frames) {
      result.frames = reports.frames;
    }
    if (output !== null) {
      result.cleaned = output.samples;
    }
    return result;
  }

  reset() {
    this.#engine.calls.korvane_stream_reset(this.#opened());
    this.#begin();
  }

  close() {
    if (this.#place !== null) {
      forgotten.unregister(this);
      this.#engine.close(this.#place);
      this.#place = null;
    }
  }

  #opened() {
    if (this.#place === null) {
      throw new TypeError("this Vad is closed; Vad.create makes a new one");
    }
    return this.#place;
  }
}

// Where the platform has the symbol, `using vad = await Vad.create(...)` closes it.
if (Symbol.dispose) {
  Object.defineProperty(Vad.prototype, Symbol.dispose, { value: Vad.prototype.close, configurable: true, writable: true });
}
