// The JavaScript package in headless Chromium and, where it is installed, Firefox: the audio worklet beside the same
// module in Node, the microphone from a file, content security policies, bundlers.
//
// KORVANE_WEB_TARBALL, NODE_PATH and CHROMIUM say where things are.
import assert from "node:assert/strict";
import { execFileSync, spawn } from "node:child_process";
import { existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, renameSync, rmSync, writeFileSync } from "node:fs";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, describe, it } from "node:test";
import { pathToFileURL } from "node:url";

const { chromium } = createRequire(import.meta.url)("playwright-core");
const FIREFOX = "/usr/bin/firefox-esr";
const SPEECH = "/usr/share/sounds/alsa/Front_Center.wav";
const folder = mkdtempSync(join(tmpdir(), "korvane-web-"));
execFileSync("tar", ["-xzf", process.env.KORVANE_WEB_TARBALL, "-C", folder]);
const { detect, readWav, Vad } = await import(pathToFileURL(join(folder, "package", "korvane-vad.js")));
const microphone = join(folder, "microphone.wav"); // speech, then as long a pause
execFileSync("sox", [SPEECH, microphone, "pad", "0", "1.5"]);

let policy = "";
let files = join(folder, "package");
let errand; // of Firefox: what to do there, and who waits for the result
const server = createServer(async (request, response) => {
  const { url } = request;
  if (url === "/result") {
    let text = "";
    for await (const part of request) {
      text += part;
    }
    errand.done(JSON.parse(text));
    response.end();
    return;
  }
  if (url === "/errand") {
    response.end(errand.page);
    return;
  }
  response.setHeader("Content-Security-Policy", policy);
  response.setHeader("Content-Type", url.endsWith(".js") ? "text/javascript" : "text/html");
  response.end(url.endsWith(".js") ? readFileSync(join(files, url)) :
    '<!doctype html><link rel="icon" href="data:,"><title>test</title><script type="module" src="/start.js"></script>');
}).listen(0);
const address = `http://localhost:${server.address().port}`;
writeFileSync(join(folder, "package", "start.js"), 'import * as korvane from "/korvane-vad.js";\nwindow.korvane = korvane;');

const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--autoplay-policy=no-user-gesture-required",
    "--use-fake-ui-for-media-stream", "--use-fake-device-for-media-stream", `--use-file-for-fake-audio-capture=${microphone}`],
});
after(async () => {
  await browser.close();
  server.close();
  rmSync(folder, { recursive: true, force: true });
});

/** What a function gives in a fresh page that has the package as window.korvane; the page must not complain. */
async function inPage(work, given) {
  const page = await browser.newPage();
  const complaints = [];
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("console", (message) => ["error", "warning"].includes(message.type()) && complaints.push(message.text()));
  await page.goto(address);
  const result = await page.evaluate(work, given);
  await page.close();
  return { result, complaints };
}

const quietly = async (...given) => {
  const { result, complaints } = await inPage(...given);
  assert.deepEqual(complaints, []);
  return result;
};

/** The same in Firefox, which tells its result to the server. */
async function inFirefox(work, given) {
  const result = new Promise((done) => {
    errand = { done, page: `<!doctype html><script type="module">
      import * as korvane from "/korvane-vad.js";
      window.korvane = korvane;
      const result = await (${work})(${JSON.stringify(given)}).catch((error) => ({ error: String(error) }));
      fetch("/result", { method: "POST", body: JSON.stringify(result) });
    </script>` };
  });
  const home = mkdtempSync(join(folder, "firefox-"));
  const firefox = spawn(FIREFOX, ["--headless", "--profile", home, "--no-remote", `${address}/errand`], { env: { ...process.env, HOME: home }, stdio: "ignore" });
  const slow = setTimeout(() => errand.done({ error: "nothing came from Firefox" }), 120000);
  const found = await result;
  clearTimeout(slow);
  firefox.kill();
  await new Promise((done) => { firefox.on("exit", done); });
  assert.equal(found.error, undefined);
  return found;
}

let seed = 3;
const random = () => (seed = (Math.imul(seed, 1103515245) + 12345) >>> 0) % 65536 / 65536 - 0.5;
const spoken = Array.from(readWav(readFileSync(SPEECH)).channelData[0], (x) => x / 32768);

describe("a node gives what a Vad does", () => {
  for (const [rate, channels, options, run = quietly] of [
    [44100, 1, {}], [8000, 1, { decision: "detector" }], [16000, 2, { minGapMs: 300, padStartMs: 100 }], [8000, 2, { decision: "fixed" }],
    [44100, 2, {}, inFirefox],
  ]) {
    const skip = run === inFirefox && !existsSync(FIREFOX);
    it(`${rate} Hz, ${channels} channels, ${JSON.stringify(options)}${run === inFirefox ? ", Firefox" : ""}`, { skip }, async () => {
      const samples = Array.from({ length: channels }, (_, c) => Float32Array.from({ length: 128 * 900 },
        (_, i) => (spoken[i % 90000] ?? 0) / (c + 1) + (i > 40000 ? 0.005 * random() : 0)));
      const [{ length }] = samples;
      const vad = await Vad.create({ sampleRate: rate, channels, ...options, cleaned: true, frames: true });
      const told = vad.push(samples);
      const rest = vad.flush();
      const expected = [...told.events, ...rest.events];
      assert.ok(expected.length >= 4);

      const found = await run(async ({ samples, rate, channels, options }) => {
        const context = new OfflineAudioContext(channels, samples[0].length, rate);
        const input = new AudioBuffer({ sampleRate: rate, numberOfChannels: channels, length: samples[0].length });
        samples.forEach((one, c) => input.copyToChannel(Float32Array.from(one), c));
        const source = new AudioBufferSourceNode(context, { buffer: input });
        const listening = async (sound) => {
          const all = { events: [], frames: [], sounds: [], ...{ sound } };
          const keep = { onSpeechStart: (event) => all.events.push(event), onFrame: (frame) => all.frames.push(frame),
            onSpeechEnd: (spoken, event) => { all.events.push(event); all.sounds.push(spoken ? Array.from(spoken) : null); } };
          all.node = await window.korvane.vadNode(context, { channels, ...options, ...keep, sound });
          all.delay = all.node.delay;
          source.connect(all.node);
          return all;
        };
        const nodes = [await listening("input"), await listening("cleaned"), await listening("none")];
        nodes[0].node.connect(context.destination);
        source.start();
        // Ninety others, so that the memory must grow under the ones that run.
        const others = await Promise.all(Array.from({ length: 90 }, () => window.korvane.vadNode(context)));
        const rendered = await context.startRendering();
        const output = Array.from({ length: channels }, (_, c) => Array.from(rendered.getChannelData(c)));
        await Promise.all([...nodes.map(({ node }) => node), ...others].map((node) => node.close()));
        return { output, nodes: nodes.map(({ node, ...all }) => all) };
      }, { samples: samples.map((one) => Array.from(one)), rate, channels, options });

      const { delay } = vad;
      for (let c = 0; c < channels; ++c) {
        assert.deepEqual(found.output[c].slice(delay), Array.from(told.cleaned[c]));
        assert.ok(found.output[c].slice(0, delay).every((x) => x === 0));
      }
      const cleaned = told.cleaned.map((one, c) => Float32Array.from([...one, ...rest.cleaned[c]]));
      const cut = (from, { startSample, endSample }) => Array.from({ length: channels * (endSample - startSample) },
        (_, i) => from[i % channels][startSample + Math.floor(i / channels)]);
      const ends = expected.filter(({ type }) => type === "end");
      for (const { events, frames, sounds, sound, delay: late } of found.nodes) {
        assert.equal(late, delay);
        const inOrder = (all) => [...all].sort((a, b) => a.startSample - b.startSample || (a.type < b.type ? 1 : -1));
        assert.deepEqual(inOrder(events), inOrder(expected), sound);
        assert.deepEqual(frames, [...told.frames, ...rest.frames]);
        const source = { input: samples, cleaned, none: null }[sound];
        assert.deepEqual(sounds, ends.map((end) => source && cut(source, end)), sound);
      }
      assert.equal(length, cleaned[0].length);
    });
  }
});

it("the microphone: three times, with the spoken sound and what came before it, whatever a callback throws", async () => {
  const runs = await quietly(async () => {
    const runs = [];
    let reported = 0;
    window.reportError = () => ++reported;
    for (let i = 0; i < 3; ++i) {
      const heard = { starts: 0, frames: 0, sounds: [] };
      const enough = new Promise((done) => {
        heard.listening = window.korvane.listen({
          onSpeechStart() { ++heard.starts; },
          onFrame() {
            if (++heard.frames % 3 === 0) {
              throw new Error("of the page's");
            }
          },
          onSpeechEnd(sound, { start, end }) {
            heard.sounds.push({ seconds: end - start, samples: sound.length, loudest: sound.reduce((most, x) => Math.max(most, Math.abs(x)), 0) });
            done();
          },
        });
      });
      const listener = await heard.listening;
      await enough;
      listener.pause();
      const { paused } = listener;
      listener.resume();
      await (i === 1 && listener.audioContext.suspend()); // stops all the same
      await (i === 2 && listener.audioContext.close());
      await Promise.all([listener.stop(), listener.stop()]);
      const { audioContext, stream } = listener;
      runs.push({ ...heard, listening: undefined, reported, paused, rate: audioContext.sampleRate, state: audioContext.state, tracks: stream.getTracks().map(({ readyState }) => readyState) });
    }
    return runs;
  });
  for (const { starts, frames, reported, sounds, paused, rate, state, tracks } of runs) {
    assert.ok(starts >= 1 && frames > 50 && reported >= frames / 4, `${starts} starts, ${frames} frames, ${reported} reported`);
    assert.deepEqual([paused, state, tracks], [true, "closed", ["ended"]]);
    assert.equal(sounds[0].samples, Math.round(sounds[0].seconds * rate));
    assert.ok(sounds[0].seconds > 0.5 && sounds[0].loudest > 0.02, JSON.stringify(sounds[0]));
  }
});

describe("content security policies", () => {
  const make = async (options) => {
    const context = new OfflineAudioContext(1, 128, 16000);
    try {
      const node = await window.korvane.vadNode(context, options);
      return String(node.delay);
    } catch ({ message }) {
      return message;
    }
  };
  const strict = "default-src 'none'; img-src data:; script-src 'self'";
  for (const [more, options, said] of [
    [" 'wasm-unsafe-eval' blob:", {}, /^720$/],
    [" 'wasm-unsafe-eval'", { workletUrl: "/worklet.js" }, /^720$/],
    [" 'wasm-unsafe-eval'", {}, /needs blob:, or workletUrl/],
    [" blob:", {}, /needs 'wasm-unsafe-eval'/],
  ]) {
    it(`script-src 'self'${more}, ${JSON.stringify(options)}`, async () => {
      policy = strict + more;
      const { result, complaints } = await inPage(make, options);
      policy = "";
      assert.match(result, said);
      assert.ok(complaints.length === 0 || !/^\d/.test(said.source.slice(1)), complaints.join());
    });
  }
});

describe("bundlers take it without being told how", () => {
  const site = join(folder, "site");
  mkdirSync(join(site, "src"), { recursive: true });
  writeFileSync(join(site, "package.json"), "{}");
  writeFileSync(join(site, "src", "index.js"), 'import { Vad, vadNode } from "korvane-vad";\nwindow.korvane = { Vad, vadNode };\n');
  writeFileSync(join(site, "index.html"), '<script type="module" src="/src/index.js"></script>');
  execFileSync("npm", ["install", "--offline", "--no-audit", "--no-fund", process.env.KORVANE_WEB_TARBALL], { cwd: site });
  const modules = process.env.NODE_PATH;
  for (const [name, out, ...command] of [
    ["esbuild", "dist", join(modules, "esbuild/bin/esbuild"), "src/index.js", "--bundle", "--minify", "--outdir=dist"],
    ["vite", "dist/assets", process.execPath, join(modules, "vite/bin/vite.js"), "build"],
    ["webpack", "dist", process.execPath, "-e", 'require("webpack")({ mode: "production" }, (error, all) => { if (error || all.hasErrors()) throw error ?? all.toString(); })'],
  ]) {
    it(name, async () => {
      rmSync(join(site, "dist"), { recursive: true, force: true });
      execFileSync(command[0], command.slice(1), { cwd: site, env: { ...process.env, NODE_PATH: modules }, stdio: "pipe" });
      files = join(site, out);
      const [script] = readdirSync(files).filter((one) => one.endsWith(".js"));
      renameSync(join(files, script), join(files, "start.js"));
      const found = await quietly(async () => {
        const vad = await window.korvane.Vad.create({ sampleRate: 16000 });
        const node = await window.korvane.vadNode(new OfflineAudioContext(1, 128, 16000));
        return [vad.vectors, node.delay];
      });
      files = join(folder, "package");
      assert.deepEqual(found, [true, 720]);
    });
  }
});

it("what is wrong is said", async () => {
  const said = await quietly(async () => {
    const context = new OfflineAudioContext(1, 128, 16000);
    const all = [];
    for (const work of [
      () => window.korvane.vadNode({}), () => window.korvane.vadNode(new OfflineAudioContext(1, 128, 96000)),
      () => window.korvane.vadNode(context, { hangover: 1 }), () => window.korvane.vadNode(context, { onFrame: 1 }),
      () => window.korvane.vadNode(context, { sound: "all" }), () => window.korvane.vadNode(context, { sound: "input", maxSpeechMs: 9 }),
      () => window.korvane.detect(new AudioBuffer({ length: 9, sampleRate: 96000 })),
    ]) {
      all.push(await work().catch(({ name, message }) => `${name}: ${message}`));
    }
    return all;
  });
  [/TypeError: .*must be an AudioContext/, /RangeError: .*not 96000: resample/, /TypeError: there is no option hangover/,
    /TypeError: onFrame must be a function/, /RangeError: sound must be one of/, /RangeError: maxSpeechMs goes with/,
    /RangeError: .*not 96000/].forEach((text, i) => assert.match(String(said[i]), text));
});

it("recordings: an AudioBuffer comes back as one", async () => {
  const segments = await detect(readWav(readFileSync(SPEECH)));
  const found = await quietly(async (samples) => {
    const buffer = new AudioBuffer({ length: samples.length, sampleRate: 48000 });
    buffer.copyToChannel(Float32Array.from(samples), 0);
    const cleaned = await window.korvane.clean(buffer);
    return { segments: await window.korvane.detect(buffer), kind: cleaned.constructor.name, length: cleaned.length };
  }, spoken);
  assert.deepEqual(found, { segments, kind: "AudioBuffer", length: spoken.length });
});
