// Runs a detector from npm over recordings:
//
//     node peers.mjs MODULES NAME [cleaned] <LIST
//
// Each line of LIST names a file of 16-bit mono samples at the detector's rate and a file to write: a float32
// score for each chunk, or 16-bit samples as RNNoise cleans them. MODULES holds node_modules. Prints the seconds that the detector took, one a line.

import {createRequire} from 'node:module';
import {readFileSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';
import {performance} from 'node:perf_hooks';
import {pathToFileURL} from 'node:url';

const [folder, name, what] = process.argv.slice(2);
const modules = join(folder, 'node_modules');
const load = (path) => import(pathToFileURL(join(modules, path)));

// Emscripten's modules: where they find their code, and a buffer of their memory.
async function wasm(packageName, file) {
    const make = (await load(`${packageName}/${file}.js`)).default;
    return make({wasmBinary: readFileSync(join(modules, packageName, `${file}.wasm`))});
}

// Each gives {chunk, start() -> (samples: Int16Array) => score}.
const detectors = {
    async silero() {
        const ort = createRequire(join(modules, 'x.js'))('onnxruntime-web');
        ort.env.wasm.numThreads = 1;
        const model = readFileSync(join(modules, '@ricky0123/vad-web/dist/silero_vad_v5.onnx'));
        const session = await ort.InferenceSession.create(model);
        const chunk = 512;
        const context = 64;  // samples of the chunk before that the model wants in front
        const rate = new ort.Tensor('int64', [16000n]);
        return {chunk, start() {
            let state = new ort.Tensor('float32', new Float32Array(2 * 128), [2, 1, 128]);
            const input = new Float32Array(context + chunk);
            return async (samples) => {
                input.copyWithin(0, chunk);
                samples.forEach((x, i) => { input[context + i] = x / 32768; });
                const out = await session.run(
                    {input: new ort.Tensor('float32', input, [1, context + chunk]), state, sr: rate});
                state = out.stateN;
                return out.output.data[0];
            };
        }};
    },

    async ten() {
        const {default: loadModule} = await load('@gooney-001/ten-vad-lib/index.mjs');
        const module = await loadModule();
        const chunk = 256;
        const samplesAt = module._malloc(2 * chunk);
        const resultsAt = module._malloc(8);
        return {chunk, start() {
            const handleAt = module._malloc(4);
            if (module._ten_vad_create(handleAt, chunk, 0.5) !== 0) {
                throw new Error('ten_vad_create');
            }
            const handle = module.getValue(handleAt, 'i32');
            return (samples) => {
                module.HEAP16.set(samples, samplesAt >> 1);
                if (module._ten_vad_process(handle, samplesAt, chunk, resultsAt, resultsAt + 4) !== 0) {
                    throw new Error('ten_vad_process');
                }
                return module.getValue(resultsAt, 'float');
            };
        }};
    },

    async rnnoise() {
        const module = await wasm('@echogarden/rnnoise-wasm', 'rnnoise');
        const chunk = 480;
        const at = module._malloc(4 * chunk);
        return {chunk, start() {
            const state = module._rnnoise_create(0);
            return (samples) => {
                module.HEAPF32.set(samples, at >> 2);
                const score = module._rnnoise_process_frame(state, at, at);
                if (what === 'cleaned') {
                    module.HEAPF32.subarray(at >> 2, (at >> 2) + chunk).forEach((x, i) => {
                        samples[i] = Math.max(-32768, Math.min(32767, Math.round(x)));
                    });
                }
                return score;
            };
        }};
    },

    async fvad() {
        const module = await wasm('@echogarden/fvad-wasm', 'fvad');
        const chunk = 160;
        const at = module._malloc(2 * chunk);
        return {chunk, start() {
            const state = module._fvad_new();
            module._fvad_set_sample_rate(state, 16000);
            module._fvad_set_mode(state, 0);
            return (samples) => {
                module.HEAP16.set(samples, at >> 1);
                return module._fvad_process(state, at, chunk);
            };
        }};
    },
};

const detector = await detectors[name]();
for (const line of readFileSync(0, 'utf8').trim().split('\n')) {
    const [from, to] = line.split('\t');
    const bytes = readFileSync(from);
    const samples = new Int16Array(bytes.buffer, bytes.byteOffset, bytes.length >> 1);
    const chunks = Math.floor(samples.length / detector.chunk);
    const scores = new Float32Array(chunks);
    const process = detector.start();
    const begun = performance.now();
    for (let i = 0; i < chunks; ++i) {
        scores[i] = await process(samples.subarray(i * detector.chunk, (i + 1) * detector.chunk));
    }
    console.log((performance.now() - begun) / 1000);
    writeFileSync(to, what === 'cleaned' ? bytes : Buffer.from(scores.buffer));
}
