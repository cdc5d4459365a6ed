// How a program in TypeScript uses the package; what must not compile is marked.
import { clean, detect, events, readWav, Vad, vadStream, type Segment, type SpeechEvent } from "korvane-vad";

export async function use(bytes: Uint8Array, buffer: AudioBuffer, chunks: ReadableStream<Float32Array>): Promise<number> {
  const segments: Segment[] = await detect(readWav(bytes), { decision: "fixed", enterDb: -40 });
  const cleaned: AudioBuffer = await clean(buffer);
  const left: Int16Array = await clean(new Int16Array(100), { sampleRate: 8000 });
  using vad = await Vad.create({ sampleRate: 16000, channels: 2, frames: true, cleaned: true });
  const { events: told, speech, frames } = vad.push([left, left]);
  const floats: Float32Array | undefined = vad.push(new Float32Array(4)).cleaned;
  const planes = vad.push([left, left]).cleaned?.map(({ length }) => length);
  const last: SpeechEvent | undefined = told.at(-1);
  const end: number = last?.type === "end" ? last.end : 0;
  for await (const event of events(chunks, { sampleRate: 16000 })) {
    // @ts-expect-error: only an end has one
    void event.end;
  }
  await chunks.pipeThrough(vadStream({ sampleRate: 16000 })).cancel();
  // @ts-expect-error: the rate is missing
  await Vad.create({});
  // @ts-expect-error: there is no such option
  await Vad.create({ sampleRate: 16000, hangover: 60 });
  // @ts-expect-error: bytes are no samples
  vad.push(bytes);
  // @ts-expect-error: made with Vad.create
  void new Vad();
  return segments.length + cleaned.length + end + Number(speech) + (floats?.length ?? 0) + (planes?.length ?? 0) + (frames?.[0].score ?? 0);
}
