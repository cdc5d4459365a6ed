// The microphone: what is heard now, and a recording of it.
import { listen } from "korvane-vad";

/** An audio worklet that hands over what comes in, about ten times a second. */
const RECORDER = `registerProcessor("recorder", class extends AudioWorkletProcessor {
  constructor() {
    super();
    this.piece = new Float32Array(4096);
    this.filled = 0;
  }
  process([[input]]) {
    if (input) {
      this.piece.set(input, this.filled);
      this.filled += input.length;
      if (this.filled === this.piece.length) {
        this.port.postMessage(this.piece);
        this.filled = 0;
      }
    }
    return true;
  }
});`;

/**
 * Opens the microphone. The callbacks are those of listen(). Gives { stop() }, which gives the recording:
 * { sampleRate, channelData }, or null where nothing came.
 */
export async function openMicrophone(callbacks, settings) {
  const listener = await listen({ sound: "none", ...settings, ...callbacks });
  const { audioContext: context, stream } = listener;
  const pieces = [];
  try {
    await context.audioWorklet.addModule(`data:text/javascript,${encodeURIComponent(RECORDER)}`);
    const recorder = new AudioWorkletNode(context, "recorder", { numberOfOutputs: 0, channelCount: 1, channelCountMode: "explicit" });
    recorder.port.onmessage = ({ data }) => pieces.push(data);
    context.createMediaStreamSource(stream).connect(recorder);
  } catch (error) {
    await listener.stop();
    throw error;
  }
  return {
    async stop() {
      const { sampleRate } = context;
      await listener.stop();
      const samples = new Float32Array(pieces.reduce((sum, { length }) => sum + length, 0));
      pieces.forEach((piece, i) => samples.set(piece, i * piece.length));
      return samples.length === 0 ? null : { sampleRate, channelData: [samples] };
    },
  };
}
