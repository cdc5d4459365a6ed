// The JavaScript package under Node, installed from its tarball into a fresh folder, beside the native library.
//
// KORVANE_WEB_TARBALL and KORVANE_NATIVE (the program native.c) say where things are.
import assert from "node:assert/strict";
import { execFileSync, spawnSync } from "node:child_process";
import { copyFileSync, mkdtempSync, openSync, readdirSync, readFileSync, rmSync, statSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, describe, it } from "node:test";
import { pathToFileURL } from "node:url";
import { Worker } from "node:worker_threads";
import { brotliCompressSync } from "node:zlib";

const SPEECH = "/usr/share/sounds/alsa/Front_Center.wav";
const folder = mkdtempSync(join(tmpdir(), "korvane-web-"));
after(() => rmSync(folder, { recursive: true, force: true }));
writeFileSync(join(folder, "package.json"), '{"type": "module"}');
execFileSync("npm", ["install", "--offline", "--no-audit", "--no-fund", process.env.KORVANE_WEB_TARBALL], { cwd: folder });
copyFileSync(SPEECH, join(folder, "talk.wav"));
const installed = join(folder, "node_modules", "korvane-vad");
const MODULE = pathToFileURL(join(installed, "korvane-vad.js")).href;

const withVectors = await import(MODULE);
assert.equal((await withVectors.Vad.create({ sampleRate: 16000 })).vectors, true);

/** The same module where vectors do not compile. */
async function withoutVectors() {
  const { instantiate } = WebAssembly;
  let tries = 0;
  WebAssembly.instantiate = (...given) => ++tries === 1 ? Promise.reject(new WebAssembly.CompileError("no vectors")) : instantiate(...given);
  const module = await import(`${MODULE}?scalar`);
  assert.equal((await module.Vad.create({ sampleRate: 16000 })).vectors, false);
  WebAssembly.instantiate = instantiate;
  return module;
}
const builds = { vectors: withVectors, scalar: await withoutVectors() };
const { clean, detect, events, readWav, Vad, vadStream } = withVectors;

let seed = 7;
const random = (n) => (seed = (Math.imul(seed, 1103515245) + 12345) >>> 0) % 65536 % n;
const spoken = readWav(readFileSync(SPEECH)).channelData[0];

/** Two seconds with a pause and noise that begins; in two channels the second is fainter and its own. */
function sound(channels) {
  return Int16Array.from({ length: 100000 * channels }, (_, i) => {
    const at = Math.floor(i / channels);
    const voice = at % 80000 < spoken.length ? spoken[at % 80000] : 0;
    return Math.round(voice / (1 + i % channels)) + (at > 30000 ? random(200) - 100 : 0);
  });
}

/** What the native library says, in the package's words. */
function native(samples, rate, channels, decision) {
  const out = execFileSync(process.env.KORVANE_NATIVE, [rate, channels, decision], { input: new Uint8Array(samples.buffer), maxBuffer: 1 << 26 }).toString();
  const told = { events: [], frames: [], cleaned: [] };
  for (const line of out.trim().split("\n")) {
    const [kind, ...numbers] = line.split(" ");
    const [a, b, c, d, e, f] = numbers.map(Number);
    if (kind === "frame") {
      told.frames.push({ start: a / rate, startSample: a, length: b, speech: c === 1, score: d, levelDb: e, noiseDb: f });
    } else if (kind === "event") {
      const begin = { start: d / rate, startSample: d };
      told.events.push(a === 1 ? { type: "start", ...begin } : { type: "end", ...begin, end: c / rate, endSample: c, open: b === 1 });
    } else {
      told.cleaned = numbers.map(Number);
    }
  }
  const nearest = (one) => ({ ...one, score: Math.fround(one.score), levelDb: Math.fround(one.levelDb), noiseDb: Math.fround(one.noiseDb) });
  return { ...told, frames: told.frames.map(nearest) };
}

const planes = (samples, channels) => Array.from({ length: channels }, (_, c) => samples.filter((_, i) => i % channels === c));
const floats = (samples) => Float32Array.from(samples, (x) => x / 32768);

/** Hands samples over in pieces of random lengths: all that is told, cleaned samples as 16-bit numbers, interleaved. */
function inPieces(vad, samples, { isFloat, isPlanar }, longest) {
  const { channels } = vad;
  const told = { events: [], frames: [], cleaned: [] };
  const add = ({ events: some, frames, cleaned, speech }) => {
    assert.equal(speech, vad.speech);
    told.events.push(...some);
    told.frames.push(...frames);
    const interleaved = !isPlanar ? cleaned : Array.from({ length: cleaned[0].length * channels }, (_, i) => cleaned[i % channels][Math.floor(i / channels)]);
    interleaved.forEach((x) => told.cleaned.push(isFloat ? x * 32768 : x));
  };
  for (let at = 0; at < samples.length;) {
    const end = Math.min(samples.length, at + channels * random(longest));
    const piece = isFloat ? floats(samples.subarray(at, end)) : samples.subarray(at, end);
    add(vad.push(isPlanar ? planes(piece, channels) : piece));
    at = end;
  }
  add(vad.flush());
  return told;
}

describe("the same as the native library, bit for bit", () => {
  const cases = [[8000, 1, "adaptive"], [16000, 1, "adaptive"], [22050, 2, "fixed"], [44100, 1, "detector"], [48000, 2, "adaptive"]];
  for (const [sampleRate, channels, decision] of cases) {
    it(`${sampleRate} Hz, ${channels} channels, ${decision}`, async () => {
      const samples = sound(channels);
      const expected = native(samples, sampleRate, channels, ["adaptive", "fixed", "detector"].indexOf(decision));
      assert.ok(expected.events.length > 1);
      for (const { Vad: Kind } of Object.values(builds)) {
        const vad = await Kind.create({ sampleRate, channels, decision, frames: true, cleaned: true });
        for (const isFloat of [false, true]) {
          for (const isPlanar of [false, true]) {
            const longest = 1 + [400, 5000, 2 * samples.length][random(3)];
            assert.deepEqual(inPieces(vad, samples, { isFloat, isPlanar }, longest), expected);
            vad.reset();
          }
        }
        vad.close();
      }
    });
  }
});

describe("whole recordings and streams", () => {
  const samples = sound(2);
  const options = { sampleRate: 16000, channels: 2, minGapMs: 200 };
  it("tell the same, in the form they came in", async () => {
    const segments = await detect(samples, options);
    assert.ok(segments.length > 1);
    const channelData = planes(samples, 2);
    const audioBuffer = { sampleRate: 16000, numberOfChannels: 2, length: channelData[0].length, getChannelData: (c) => floats(channelData[c]) };
    const chunks = Array.from({ length: 11 }, (_, i) => samples.subarray(20000 * i, 20000 * (i + 1)));
    const ends = async (all) => {
      const found = [];
      for await (const { type, ...event } of all) {
        assert.equal("end" in event, type === "end");
        found.push(...type === "end" ? [event] : []);
      }
      return found;
    };
    const { sampleRate, channels, ...settings } = options;
    for (const same of [
      await detect(channelData, { sampleRate, ...settings }), await detect({ sampleRate, channelData }, settings),
      await detect(audioBuffer, settings), await ends(events(chunks, options)),
      await ends(events(ReadableStream.from(chunks), options)),
      await ends(ReadableStream.from(chunks).pipeThrough(vadStream(options))),
    ]) {
      assert.deepEqual(same, segments);
    }
    const cleaned = await clean(samples, options);
    assert.equal(cleaned.length, samples.length);
    assert.notDeepEqual(cleaned, samples);
    assert.deepEqual(await clean(channelData, { sampleRate }), planes(cleaned, 2));
    assert.deepEqual(await clean({ sampleRate, channelData }), { sampleRate, channelData: planes(cleaned, 2) });
    assert.deepEqual(await clean(floats(samples), options), floats(cleaned));
  });

  it("are silent where there is nothing", async () => {
    assert.deepEqual(await detect(new Float32Array(0), { sampleRate: 8000 }), []);
    assert.deepEqual(await detect(new Float32Array(90000).fill(NaN), { sampleRate: 8000 }), []);
    assert.equal((await clean(new Int16Array(5), { sampleRate: 8000 })).length, 5);
  });
});

const memory = () => process.memoryUsage().external; // the modules' is counted there

it("ten thousand streams at once, side by side, opened and closed again and again", async () => {
  const piece = sound(1).subarray(0, 3000);
  const make = async () => {
    const all = [];
    for (let i = 0; i < 10000; ++i) {
      all.push(await Vad.create({ sampleRate: 8000, frames: true }));
    }
    const frames = all.map((vad) => vad.push(piece).frames);
    assert.deepEqual(frames.at(-1), frames[0]);
    all.forEach((vad) => vad.close());
  };
  await make();
  const used = memory();
  for (let i = 0; i < 3; ++i) {
    await make();
  }
  assert.ok(memory() < used + 4e6, `${memory() - used} bytes more`);
});

it("a Vad that was forgotten gives its memory back", { skip: typeof globalThis.gc !== "function" }, async () => {
  const used = memory();
  for (let round = 0; round < 20; ++round) {
    for (let i = 0; i < 1000; ++i) {
      await Vad.create({ sampleRate: 8000 });
    }
    globalThis.gc();
    await new Promise((done) => { setTimeout(done, 5); });
  }
  assert.ok(memory() < used + 60e6, `${memory() - used} bytes more, where 20000 streams take 330 MB`);
});

it("worker threads have detectors of their own", async () => {
  const samples = sound(1);
  const work = `
    const { parentPort, workerData: { module, samples } } = require("node:worker_threads");
    import(module).then(({ detect }) => detect(samples, { sampleRate: 16000 })).then((found) => parentPort.postMessage(found));`;
  const run = () => new Promise((done, fail) => {
    new Worker(work, { eval: true, workerData: { module: MODULE, samples } }).on("message", done).on("error", fail);
  });
  const here = await detect(samples, { sampleRate: 16000 });
  assert.ok(here.length > 0);
  for (const there of await Promise.all([run(), run(), run()])) {
    assert.deepEqual(there, here);
  }
});

it("the worklet allocates nothing while nothing is told, and lets go when it is closed", { skip: typeof globalThis.gc !== "function" }, async () => {
  const said = [];
  Object.assign(globalThis, {
    sampleRate: 16000,
    AudioWorkletProcessor: class { port = { postMessage: (message) => said.push(message) }; },
    registerProcessor(name, Processor) { globalThis.Processor = Processor; },
  });
  await import(pathToFileURL(join(installed, "worklet.js")));
  const digits = readFileSync(join(installed, "korvane-vad.js"), "utf8").match(/0061736d01000000[0-9a-f]+/)[0];
  const one = new globalThis.Processor({ processorOptions: { bytes: Buffer.from(digits, "hex"), channels: 2, frames: false, sound: "input",
    settings: [160, 0, 1, 0.5, 0.4, -45, -50, 0, 60, 0, 0, 0, 0, 0], keep: 20000 } });
  const quantum = [[[new Float32Array(128), new Float32Array(128)]], [[new Float32Array(128), new Float32Array(128)]]];
  const run = (n) => {
    for (let i = 0; i < n; ++i) {
      one.process(quantum[0], quantum[1]);
    }
  };
  run(20000); // until an engine has compiled it for good
  const grown = Array.from({ length: 5 }, () => { // of which one may meet what the engine does on its own
    globalThis.gc();
    const used = process.memoryUsage().heapUsed;
    run(5000);
    return process.memoryUsage().heapUsed - used;
  });
  assert.ok(Math.min(...grown) < 10000, `${grown} bytes in 5000 calls`);
  assert.deepEqual(said, []);
  assert.equal(one.process(...quantum), true);
  one.port.onmessage({ data: "close" });
  assert.deepEqual(said, [{ closed: true }]);
  assert.equal(one.process(...quantum), false);
});

describe("what is wrong is said, and nothing is lost", () => {
  const of = (more) => ({ sampleRate: 16000, ...more });
  for (const [options, kind, text] of [
    [undefined, TypeError, /options must be an object/],
    [{}, TypeError, /sampleRate is missing/],
    [{ sampleRate: "16000" }, TypeError, /sampleRate must be a number, not "16000"/],
    ...[0, -1, 50000, 1e300, 22050.5].map((sampleRate) => [{ sampleRate }, RangeError, /sampleRate must be a whole number from 1 to 49999 Hz.*resample/]),
    [{ sampleRate: NaN }, RangeError, /finite/],
    ...[0, 3, 2 ** 32 + 1, 1.5].map((channels) => [of({ channels }), RangeError, /channels must be 1 or 2.*mix/]),
    [of({ decision: "best" }), RangeError, /"adaptive", "fixed", "detector", not "best"/],
    [of({ hangover: 60 }), TypeError, /no option hangover; there are .*hangoverMs/],
    [of({ hangoverMs: 1.5 }), RangeError, /whole/],
    [of({ hangoverMs: 2 ** 32 }), RangeError, /whole/],
    [of({ padEndMs: -1 }), RangeError, /0 to 3600000 ms: padEndMs -1/],
    [of({ frameLength: 4097 }), RangeError, /1 to 4096 samples/],
    [of({ enterScore: 0.3 }), RangeError, /enterScore 0.3, stayScore by default/],
    [of({ enterDb: 1 }), RangeError, /-140 to 0/],
    [of({ cleaned: 1 }), TypeError, /cleaned must be true or false/],
  ]) {
    it(`options ${JSON.stringify(options)}`, async () => {
      await assert.rejects(Vad.create(options), (error) => error.constructor === kind && text.test(error.message));
      await assert.rejects(detect(new Int16Array(1), options), kind);
    });
  }

  it("samples and calls", async () => {
    const vad = await Vad.create({ sampleRate: 16000, channels: 2, frames: true });
    const moved = new Float32Array(10);
    structuredClone(moved, { transfer: [moved.buffer] });
    const two = (a, b) => [a, b];
    for (const [samples, kind, text] of [
      [undefined, TypeError, /not undefined/], ["abc", TypeError, /not a string/], [{}, TypeError, /samples must be/],
      [Buffer.alloc(4), TypeError, /new Int16Array/], [[1, 2], TypeError, /not 1/], [new Float64Array(2), TypeError, /not Float64Array/],
      [moved, TypeError, /detached/], [two(moved, moved), TypeError, /detached/], [new Int16Array(3), RangeError, /pairs of left and right/],
      [[new Int16Array(2)], RangeError, /1 channels, but.*2/], [two(new Int16Array(2), new Int16Array(3)), RangeError, /equally long/],
      [two(new Int16Array(2), new Float32Array(2)), RangeError, /one type/], [[], RangeError, /no channels/],
      [{ sampleRate: 8000, channelData: two(moved, moved) }, RangeError, /8000 Hz, but.*16000/],
    ]) {
      assert.throws(() => vad.push(samples), (error) => error.constructor === kind && text.test(error.message), String(text));
    }
    assert.equal(vad.push(new Int16Array(32000)).frames[0].startSample, 0);
    vad.flush();
    assert.throws(() => vad.push(new Int16Array(2)), /reset\(\) begins anew/);
    assert.throws(() => vad.flush(), /reset\(\) begins anew/);
    vad.reset();
    assert.equal(vad.push(new Int16Array(32000)).frames[0].startSample, 0);
    vad[Symbol.dispose ?? Symbol.for("none")]?.();
    vad.close();
    vad.close();
    for (const call of [() => vad.push(new Int16Array(2)), () => vad.flush(), () => vad.reset(), () => vad.delay]) {
      assert.throws(call, { constructor: TypeError, message: /closed; Vad.create/ });
    }
    assert.throws(() => new Vad(), /Vad.create/);
    await assert.rejects(events(5, { sampleRate: 16000 }).next(), /ReadableStream.*not 5/);
    await vadStream({ sampleRate: 16000 }).readable.cancel(); // before there is a Vad
    await detect({ sampleRate: 16000, channelData: [new Int16Array(9)] }, { sampleRate: undefined, channels: undefined });
  });

  it("files that are no sound", () => {
    const wav = readFileSync(SPEECH);
    const changed = (at, ...bytes) => wav.map((byte, i) => bytes[i - at] ?? byte);
    for (const [bytes, kind, text] of [
      ["talk.wav", TypeError, /a file's bytes/], [new Uint8Array(0), RangeError, /no WAV file/], [wav.subarray(0, 36), RangeError, /no samples/],
      [changed(20, 85), RangeError, /format 85/], [changed(22, 0), RangeError, /0 channels/],
      [changed(32, 4), RangeError, /4 bytes for each/],
    ]) {
      assert.throws(() => readWav(bytes), (error) => error.constructor === kind && text.test(error.message));
    }
    assert.equal(readWav(wav.subarray(0, 1000)).channelData[0].length, 478);
    // What follows the samples is none of them: behind a size of 64 bits, and in a finished file without samples.
    const chunk = (name, size, ...bytes) => [...name].map((c) => c.charCodeAt(0)).concat([...new Uint8Array(Uint32Array.of(size).buffer)], bytes);
    const format = [...wav.subarray(12, 36)];
    const list = chunk("LIST", 4, 1, 2, 3, 4);
    const long = Uint8Array.from([...chunk("RF64", 0xffffffff), ...chunk("WAVEds64", 24).slice(0, 8), 24, 0, 0, 0, ...new Uint8Array(8), 4, ...new Uint8Array(15),
      ...format, ...chunk("data", 0xffffffff, 1, 0, 2, 0), ...list]);
    assert.deepEqual(readWav(long).channelData, [Int16Array.of(1, 2)]);
    const empty = [...chunk("WAVE", 0).slice(0, 4), ...format, ...chunk("data", 0), ...list];
    assert.equal(readWav(Uint8Array.from([...chunk("RIFF", empty.length), ...empty])).channelData[0].length, 0);
  });
});

it("WAV files of every kind hold the same samples", () => {
  for (const [bits, encoding, loss] of [[8, "unsigned-integer", 1 / 128], [16, "signed-integer", 0], [24, "signed-integer", 0], [32, "signed-integer", 0], [32, "floating-point", 0], [64, "floating-point", 0]]) {
    const bytes = execFileSync("sox", ["-D", SPEECH, "-b", bits, "-e", encoding, "-c", "2", "-t", "wav", "-"], { stdio: ["ignore", "pipe", "ignore"], maxBuffer: 1 << 24 });
    const { sampleRate, channelData } = readWav(bytes);
    assert.deepEqual([sampleRate, channelData.length, channelData[1].length], [48000, 2, spoken.length]);
    const scale = bits === 16 ? 32768 : 1;
    assert.ok(channelData[1].every((x, i) => Math.abs(x / scale - spoken[i] / 32768) <= loss), `${bits} bits, ${encoding}`);
  }
});

describe("as people use it", () => {
  it("the README's lines run as they stand", () => {
    const lines = readFileSync(new URL("../../README.md", import.meta.url), "utf8").match(/```js\n(.*?korvane-vad.*?)```/s)[1];
    writeFileSync(join(folder, "first.js"), lines);
    const said = execFileSync("node", ["first.js"], { cwd: folder }).toString();
    assert.match(said, /^speech from 0\.\d+ to 0\.\d+ s\n/);
    assert.ok(lines.trim().split("\n").length <= 5);
  });

  it("npx korvane-vad", async () => {
    const run = (...words) => spawnSync("npx", ["--offline", "korvane-vad", ...words], { cwd: folder, encoding: "utf8" });
    const segments = await detect(readWav(readFileSync(SPEECH)));
    const lines = segments.map(({ start, end }) => [start, end, end - start].map((x) => x.toFixed(3)).join("\t"));
    assert.equal(run("talk.wav").stdout, `${lines.join("\n")}\n`);
    const many = run("--json", "none.wav", "talk.wav");
    assert.equal(many.stdout.trim().split("\n").length, segments.length);
    assert.match(many.stderr, /none\.wav: ENOENT/);
    assert.equal(many.status, 1);
    for (const [words, status] of [[[], 2], [["--jsn", "talk.wav"], 2], [["--help"], 0]]) {
      assert.equal(run(...words).status, status);
    }
    const full = openSync("/dev/full", "w");
    const lost = spawnSync("npx", ["--offline", "korvane-vad", "talk.wav"], { cwd: folder, encoding: "utf8", stdio: ["ignore", full, "pipe"] });
    assert.match(lost.stderr, /ENOSPC/);
    assert.equal(lost.status, 1);
  });

  it("a program in TypeScript", () => {
    copyFileSync(new URL("types.ts", import.meta.url), join(folder, "types.ts"));
    const options = "--noEmit --strict --target es2022 --lib es2022 --module nodenext --noUncheckedIndexedAccess false".split(" ");
    const { stdout, status } = spawnSync("node", [join(process.env.NODE_PATH, "typescript/bin/tsc"), ...options, "types.ts"], { cwd: folder, encoding: "utf8" });
    assert.deepEqual([stdout, status], ["", 0]);
  });

  it("a CommonJS program imports it", () => {
    const said = execFileSync("node", ["-e", 'import("korvane-vad").then(({ Vad }) => console.log(typeof Vad.create))'], { cwd: folder }).toString();
    assert.equal(said, "function\n");
  });

  it("it is one file that imports nothing, at most 40 kB for a browser", () => {
    const text = readFileSync(join(installed, "korvane-vad.js"));
    assert.ok(!/\bimport\b|\brequire\b/.test(text));
    assert.ok(brotliCompressSync(text).length <= 40000);
    const total = readdirSync(installed).reduce((sum, name) => sum + statSync(join(installed, name)).size, 0);
    assert.ok(total < 350000, `${total} bytes installed`);
  });
});
