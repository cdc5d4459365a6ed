// Times detectors and suppressors on the same sound in one process: node measure.mjs OURS MODULES
//
// OURS is this package's module, MODULES the folder node_modules with the others. They take turns, a second of sound
// each, mono; each gets pieces of the length it wants. Prints a table in Markdown: the median of the rounds in
// microseconds for a second of sound; milliseconds from loading to the first answer, in a process of its own; bytes
// that a page must load, packed by brotli.
import { execFileSync } from "node:child_process";
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import { join } from "node:path";
import { performance } from "node:perf_hooks";
import { fileURLToPath, pathToFileURL } from "node:url";
import { brotliCompressSync } from "node:zlib";

const ROUNDS = 41;
const SECONDS = 3; // in turn; the first pass does not count
const [ours, modules, only] = process.argv.slice(2);
const at = (path) => join(modules, path);
const load = (path) => import(pathToFileURL(at(path)));

/** A module by Emscripten whose state works on a buffer in its own memory. */
async function emscripten(script, wasm, make) {
  const create = (await load(script)).default;
  const module = await create({ wasmBinary: readFileSync(at(wasm)) });
  return make(module);
}

const rnnoise = (script, wasm) => emscripten(script, wasm, (module) => {
  const state = module._rnnoise_create(0);
  const place = module._malloc(4 * 480);
  const scaled = new Float32Array(480);
  return (samples) => {
    for (let i = 0; i < 480; ++i) {
      scaled[i] = samples[i] * 32768;
    }
    module.HEAPF32.set(scaled, place >> 2);
    return module._rnnoise_process_frame(state, place, place);
  };
});

/** An audio worklet's processor outside of one; its frames may be longer than 128 samples. */
async function processor(script, wasm, rate, frame) {
  let Processor;
  globalThis.sampleRate = rate;
  globalThis.AudioWorkletProcessor = class { port = { addEventListener() {} }; };
  globalThis.registerProcessor = (_, it) => { Processor = it; };
  const text = readFileSync(at(script), "utf8").replaceAll("bufferSize:128", `bufferSize:${frame}`);
  await import(`data:text/javascript;base64,${Buffer.from(text).toString("base64")}`);
  const one = new Processor({ processorOptions: { maxChannels: 1, wasmBinary: readFileSync(at(wasm)) } });
  await new Promise((done) => { setTimeout(done, 0); });
  while (!one.processor) {
    await new Promise((done) => { setImmediate(done); });
  }
  const output = new Float32Array(frame);
  return (samples) => one.process([[samples]], [[output]]);
}

const korvane = (options) => async () => {
  const { Vad } = await import(pathToFileURL(ours));
  const vad = await Vad.create(options);
  return (samples) => vad.push(samples);
};
const SUPPRESSOR = "@sapphi-red/web-noise-suppressor/dist";
const ECHOGARDEN = "@echogarden/rnnoise-wasm/rnnoise";

// What others are measured by: those that give a score by the whole, a suppressor alone by what needs no score.
const DOES_ALL = "Korvane VAD, events, scores, cleaned sound";
const SUPPRESSES = "Korvane VAD, cleaned sound, events by its level";

const candidates = [
  { name: "Korvane VAD, events", rate: 16000, chunk: 576, files: [ours], make: korvane({ sampleRate: 16000 }) },
  { name: SUPPRESSES, rate: 16000, chunk: 576, files: [ours], make: korvane({ sampleRate: 16000, decision: "fixed", cleaned: true }) },
  { name: DOES_ALL, rate: 16000, chunk: 576, files: [ours], make: korvane({ sampleRate: 16000, frames: true, cleaned: true }) },
  { name: DOES_ALL, rate: 48000, chunk: 576, files: [ours], make: korvane({ sampleRate: 48000, frames: true, cleaned: true }) },
  { name: "SpeexDSP (web-noise-suppressor), cleaned sound", rate: 16000, chunk: 320, measure: SUPPRESSES, files: [at(`${SUPPRESSOR}/speex/workletProcessor.js`), at(`${SUPPRESSOR}/speex.wasm`)],
    make: () => processor(`${SUPPRESSOR}/speex/workletProcessor.js`, `${SUPPRESSOR}/speex.wasm`, 16000, 320) },
  { name: "RNNoise (echogarden), score, cleaned sound", rate: 48000, chunk: 480, files: [at(`${ECHOGARDEN}.js`), at(`${ECHOGARDEN}.wasm`)],
    make: () => rnnoise(`${ECHOGARDEN}.js`, `${ECHOGARDEN}.wasm`) },
  { name: "RNNoise (jitsi), score, cleaned sound", rate: 48000, chunk: 480, files: [at("@jitsi/rnnoise-wasm/dist/rnnoise.js"), at("@jitsi/rnnoise-wasm/dist/rnnoise.wasm")],
    make: () => rnnoise("@jitsi/rnnoise-wasm/dist/rnnoise.js", "@jitsi/rnnoise-wasm/dist/rnnoise.wasm") },
  { name: "libfvad (echogarden), speech or not", rate: 16000, chunk: 160, files: [at("@echogarden/fvad-wasm/fvad.js"), at("@echogarden/fvad-wasm/fvad.wasm")],
    make: () => emscripten("@echogarden/fvad-wasm/fvad.js", "@echogarden/fvad-wasm/fvad.wasm", (module) => {
      const state = module._fvad_new();
      module._fvad_set_sample_rate(state, 16000);
      const place = module._malloc(2 * 160);
      const ints = new Int16Array(160);
      return (samples) => {
        for (let i = 0; i < 160; ++i) {
          ints[i] = samples[i] * 32767;
        }
        module.HEAP16.set(ints, place >> 1);
        return module._fvad_process(state, place, 160);
      };
    }) },
  { name: "TEN VAD, score", rate: 16000, chunk: 256, files: [at("@gooney-001/ten-vad-lib/ten_vad.js"), at("@gooney-001/ten-vad-lib/ten_vad.wasm")],
    async make() {
      const module = await (await load("@gooney-001/ten-vad-lib/index.mjs")).default();
      const place = module._malloc(2 * 256);
      const results = module._malloc(8);
      const handle = module._malloc(4);
      module._ten_vad_create(handle, 256, 0.5);
      const state = module.getValue(handle, "i32");
      const ints = new Int16Array(256);
      return (samples) => {
        for (let i = 0; i < 256; ++i) {
          ints[i] = samples[i] * 32767;
        }
        module.HEAP16.set(ints, place >> 1);
        module._ten_vad_process(state, place, 256, results, results + 4);
        return module.getValue(results, "float");
      };
    } },
  { name: "Silero v5 (onnxruntime-web, one thread), score", rate: 16000, chunk: 512,
    files: ["onnxruntime-web/dist/ort.wasm.min.mjs", "onnxruntime-web/dist/ort-wasm-simd-threaded.wasm", "@ricky0123/vad-web/dist/silero_vad_v5.onnx"].map(at),
    async make() {
      const ort = createRequire(at("x.js"))("onnxruntime-web");
      ort.env.wasm.numThreads = 1;
      const model = await ort.InferenceSession.create(readFileSync(at("@ricky0123/vad-web/dist/silero_vad_v5.onnx")));
      const sr = new ort.Tensor("int64", [16000n]);
      let state = new ort.Tensor("float32", new Float32Array(256), [2, 1, 128]);
      const input = new Float32Array(576);
      return async (samples) => {
        input.copyWithin(0, 512);
        input.set(samples, 64);
        const out = await model.run({ input: new ort.Tensor("float32", input, [1, 576]), state, sr });
        state = out.stateN;
        return out.output.data[0];
      };
    } },
];

let seed = 5;
const noise = () => (seed = (Math.imul(seed, 1103515245) + 12345) >>> 0) / 2 ** 32 - 0.5;
/** Syllables of a buzz in every other half second, over noise. */
const sound = (rate) => Float32Array.from({ length: SECONDS * rate }, (_, i) =>
  0.03 * noise() + (Math.floor(2 * i / rate) % 2 ? 0.2 * Math.sin(2 * Math.PI * 150 * i / rate) ** 9 : 0));

if (only !== undefined) {
  const { make, chunk } = candidates[only];
  const begun = performance.now();
  await (await make())(new Float32Array(chunk));
  console.log(performance.now() - begun);
  process.exit();
}

const sounds = { 16000: sound(16000), 48000: sound(48000) };
for (const one of candidates) {
  one.run = await one.make();
  one.times = [];
}
for (let round = 0; round < ROUNDS + SECONDS; ++round) {
  for (const { run, rate, chunk, times } of candidates) {
    const begin = round % SECONDS * rate;
    const pieces = Array.from({ length: Math.floor(rate / chunk) }, (_, i) => sounds[rate].subarray(begin + i * chunk, begin + (i + 1) * chunk));
    const begun = performance.now();
    for (const piece of pieces) {
      const answer = run(piece);
      if (answer instanceof Promise) {
        await answer;
      }
    }
    const taken = 1000 * (performance.now() - begun) * rate / (pieces.length * chunk);
    if (round >= SECONDS) {
      times.push(taken);
    }
  }
}

const middle = (values) => values.sort((a, b) => a - b)[values.length >> 1];
console.log("| | rate | µs for a second of sound | least to most | times ours | ms to the first answer | kB to load |");
console.log("|---|---|---|---|---|---|---|");
for (const [i, { name, rate, files, times, measure = DOES_ALL }] of candidates.entries()) {
  const starts = Array.from({ length: 5 }, () => Number(execFileSync(process.execPath, ["--no-warnings", fileURLToPath(import.meta.url), ours, modules, i]).toString().trim().split("\n").at(-1)));
  const kilobytes = files.reduce((sum, file) => sum + brotliCompressSync(readFileSync(file)).length, 0) / 1000;
  const reference = middle(candidates.find((one) => one.rate === rate && one.name === measure).times);
  console.log(`| ${name} | ${rate} | ${middle(times).toFixed(0)} | ${times[0].toFixed(0)} to ${times.at(-1).toFixed(0)} | ${(middle(times) / reference).toFixed(1)} | ${middle(starts).toFixed(0)} | ${kilobytes.toFixed(0)} |`);
}
process.exit();
