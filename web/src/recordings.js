// Whole recordings and streams of samples.
import { isAudioBuffer, recordingOf } from "./samples.js";
import { Vad } from "./vad.js";

/** Hands a recording to a new Vad: gives what push and flush told. */
async function hear(recording, options) {
  const { samples, ...facts } = recordingOf(recording);
  const known = Object.fromEntries(Object.entries(facts).filter(([, value]) => value !== undefined));
  const vad = await Vad.create({ ...known, ...options });
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
  if (isAudioBuffer(recording)) {
    const { length, numberOfChannels, sampleRate } = recording;
    const buffer = new AudioBuffer({ length, numberOfChannels, sampleRate });
    joined.forEach((one, c) => buffer.copyToChannel(one, c));
    return buffer;
  }
  return recording.channelData ? { sampleRate: recording.sampleRate, channelData: joined } : joined;
}

export function vadStream(options) {
  let vad;
  return new TransformStream({
    async start() {
      vad = await Vad.create(options);
    },
    transform(samples, controller) {
      vad.push(samples).events.forEach((event) => controller.enqueue(event));
    },
    flush(controller) {
      vad.flush().events.forEach((event) => controller.enqueue(event));
      vad.close();
    },
    cancel() {
      vad.close();
    },
  });
}

/** The chunks of a stream; not every browser's are iterable. */
async function* chunksOf(readable) {
  if (typeof readable?.getReader !== "function") {
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
