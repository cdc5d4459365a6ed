// Whole recordings and streams of samples.
import { isAudioBuffer, nameOf, recordingOf } from "./samples.js";
import { Vad } from "./vad.js";

/** Hands a recording to a new Vad: gives what push and flush told. */
async function hear(recording, options) {
  const { samples, ...facts } = recordingOf(recording);
  const given = [facts, options ?? {}].flatMap(Object.entries).filter(([, value]) => value !== undefined);
  const vad = await Vad.create(Object.fromEntries(given));
  try {
    return [vad.push(recording), vad.flush()];
  } finally {
    vad.close();
  }
}

export async function detect(recording, options) {
  const told = await hear(recording, options);
  return told.flatMap(({ events }) => events).filter(({ type }) => type === "end").map(({ type, ...segment }) => segment);
}

export async function clean(recording, options) {
  const [begin, end] = (await hear(recording, { ...options, cleaned: true })).map(({ cleaned }) => cleaned);
  const join = (a, b) => {
    const whole = new a.constructor(a.length + b.length);
    whole.set(a);
    whole.set(b, a.length);
    return whole;
  };
  const joined = Array.isArray(begin) ? begin.map((one, c) => join(one, end[c])) : join(begin, end);
  if (isAudioBuffer(recording) && typeof AudioBuffer === "function") {
    const { length, numberOfChannels, sampleRate } = recording;
    const buffer = new AudioBuffer({ length, numberOfChannels, sampleRate });
    joined.forEach((one, c) => buffer.copyToChannel(one, c));
    return buffer;
  }
  if (isAudioBuffer(recording)) { // of a library, outside browsers
    return { sampleRate: recording.sampleRate, channelData: joined };
  }
  return recording.channelData ? { ...recording, channelData: joined } : joined;
}

export function vadStream(options) {
  let vad;
  let cancelled = false;
  return new TransformStream({
    async start() {
      vad = await Vad.create(options);
      if (cancelled) {
        vad.close();
      }
    },
    transform(samples, controller) {
      try {
        vad.push(samples).events.forEach((event) => controller.enqueue(event));
      } catch (error) {
        vad.close(); // the stream is over
        throw error;
      }
    },
    flush(controller) {
      vad.flush().events.forEach((event) => controller.enqueue(event));
      vad.close();
    },
    cancel() {
      cancelled = true;
      vad?.close();
    },
  });
}

/** The chunks of a stream; not every browser's are iterable. */
async function* chunksOf(readable) {
  if (typeof readable?.getReader !== "function") {
    if (!readable?.[Symbol.asyncIterator] && !readable?.[Symbol.iterator]) {
      throw new TypeError(`events takes a ReadableStream or what for await goes through, not ${nameOf(readable)}`);
    }
    yield* readable;
    return;
  }
  const reader = readable.getReader();
  try {
    for (let step = await reader.read(); !step.done; step = await reader.read()) {
      yield step.value;
    }
  } finally {
    await reader.cancel();
    reader.releaseLock();
  }
}

export async function* events(readable, options) {
  const vad = await Vad.create(options);
  try {
    for await (const samples of chunksOf(readable)) {
      yield* vad.push(samples).events;
    }
    yield* vad.flush().events;
  } finally {
    vad.close();
  }
}
