// The report in headless Chromium, looked at as people do: signals at known places are read off its
// pixels by the labels of its axes, its sound is what is played, and it obeys mouse, keys and fingers.
//
// KORVANE_VAD_TOOL, NODE_PATH and CHROMIUM say where things are.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { copyFileSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { after, describe, it } from "node:test";
import { pathToFileURL } from "node:url";

const { chromium } = createRequire(import.meta.url)("playwright-core");
const TOOL = process.env.KORVANE_VAD_TOOL;
const SPEECH = "/usr/share/sounds/alsa/Front_Center.wav";
const PANELS = ["Waveform before", "Waveform after", "Level of the cleaned frames", "Decision", "Spectrogram before",
  "Spectrogram after"];

const folder = mkdtempSync(join(tmpdir(), "korvane-report-"));
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync"],
});
let page;
let complaints; // of the console and of scripts
let requests;

/** 16-bit samples of a signal over time, in one channel or, half as loud in the first, in two. */
function recording(name, rate, channels, seconds, signal, ...options) {
  const samples = Int16Array.from({ length: seconds * rate * channels },
    (_, i) => Math.round(signal(Math.floor(i / channels) / rate) / (channels - i % channels)));
  const file = join(folder, `${name}.raw`);
  writeFileSync(file, samples);
  return { name, rate, seconds, samples, input: ["--raw", "s16le", "-r", rate, "-c", channels, ...options, file] };
}

const tone = (hertz, t) => Math.sin(2 * Math.PI * hertz * t);
const hum = (t) => t % 6 < 3 ? 0 : 9000 * tone(300, t); // three seconds each, the last one unfinished

let seed = 1;
const noise = () => (seed = (1103515245 * seed + 12345) % 2147483648) / 2147483648 - 0.5;
const BURST = { from: 5, to: 6, hertz: 1000, amplitude: 13000 };
const SWEEP = { from: 9, to: 12, low: 500, high: 7000 };
let noisy; // the noise of a sample is the same in both channels
const made = recording("made", 16000, 2, 16, (t) => {
  noisy = t === noisy?.t ? noisy : { t, value: 3000 * noise() };
  const part = (t - SWEEP.from) / (SWEEP.to - SWEEP.from);
  return noisy.value + (t >= BURST.from && t < BURST.to ? BURST.amplitude * tone(BURST.hertz, t) : 0) +
    (part >= 0 && part < 1 ? 10000 * tone(SWEEP.low + (SWEEP.high - SWEEP.low) * part / 2, t - SWEEP.from) : 0);
});
const hums = recording("hums", 16000, 1, 18, hum);
const scored = { ...hums, input: [...hums.input, "--decision", "adaptive"] };
const slow = recording("slow", 3000, 2, 72, hum, "--channels", "2", "--pad-end", "150samples");
const silent = recording("silent", 2000, 1, 1, () => 0);
const long = recording("long", 1999, 1, 230 * 16, (t) => t % 16 < 2 ? 9000 * tone(300, t) : 0);

const DETECTOR = ["--decision", "detector"]; // whose pictures are known: it goes by the level alone
const run = (command, input, ...more) => execFileSync(TOOL, [command, ...DETECTOR, ...input, ...more], { maxBuffer: 1 << 28 });

let pages = 0;
function report(input, audio = "flac") {
  const out = join(folder, `page-${pages++}.html`);
  run("report", input, "--audio", audio, "-o", out);
  return out;
}

async function open(file, options = {}) {
  const context = await browser.newContext({ viewport: { width: 1280, height: 1400 }, offline: true, ...options });
  page = await context.newPage();
  complaints = [];
  requests = [];
  page.on("console", (message) => {
    if (["error", "warning"].includes(message.type())) {
      complaints.push(message.text());
    }
  });
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("request", (request) => requests.push(request.url()));
  await page.addInitScript(listenIn);
  if (options.old) {
    await page.addInitScript(() => { delete Uint8Array.fromBase64; });
  }
  await page.goto(pathToFileURL(file).href);
  await page.locator("html[data-ready]").waitFor({ state: "attached" });
}

/** In the page: pixels of a canvas as they lie on the paper; what is written on each; what each player was given. */
function listenIn() {
  window.pixelsOf = (canvas, left, top, width, height) => {
    const copy = new OffscreenCanvas(width, height).getContext("2d");
    copy.fillStyle = getComputedStyle(document.documentElement).backgroundColor;
    copy.fillRect(0, 0, width, height);
    copy.drawImage(canvas, -left, -top);
    return copy.getImageData(0, 0, width, height).data;
  };
  const [players, blobs] = [new Set(), new Map()];
  const also = (object, name, then) => {
    const was = object[name];
    object[name] = function (...given) {
      const result = was.apply(this, given);
      then(this, given, result);
      return result;
    };
  };
  also(CanvasRenderingContext2D.prototype, "clearRect", ({ canvas }) => { canvas.texts = []; });
  also(CanvasRenderingContext2D.prototype, "fillText", ({ canvas }, text) => { canvas.texts?.push(text); });
  also(HTMLMediaElement.prototype, "play", (player) => { players.add(player); });
  also(URL, "createObjectURL", (_, [blob], url) => { blobs.set(url, blob); });
  /** The samples of what is playing, interleaved, as text. */
  window.heard = async (rate) => {
    const [{ src }] = [...players].filter((one) => !one.paused);
    const sound = await new OfflineAudioContext(1, 1, rate).decodeAudioData(await blobs.get(src).arrayBuffer());
    const channels = Array.from({ length: sound.numberOfChannels }, (_, i) => sound.getChannelData(i));
    return Array.from({ length: sound.length }, (_, i) => channels.map((one) => Math.round(one[i] * (one[i] < 0 ? 32768 : 32767)))).join();
  };
}

/** Nothing to complain about, nothing asked for but the page and its audio. */
async function closeQuietly() {
  const outside = requests.filter((url) => !/^(file|blob|data):/.test(url));
  await page.context().close();
  assert.deepEqual(complaints, []);
  assert.deepEqual(outside, []);
}

/** A test on the page about a recording. */
function shows(what, recording, look, options) {
  it(what, async () => {
    await open(recording.page ??= report(recording.input), options);
    await look();
    await closeQuietly();
  });
}

const near = (actual, expected, tolerance, what) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${what}: ${actual}, not ${expected} to within ${tolerance}`);

const distance = (rgb, other) => rgb.reduce((sum, part, i) => sum + Math.abs(part - other[i]), 0);

/** Hours, minutes and seconds as text, to milliseconds, as long as the page has them. */
const clock = (ms, parts) => parts === 1 ? (ms / 1000).toFixed(3) :
  new Date(ms).toISOString().slice(parts === 2 ? 14 : 11, 23).replace(/^0/, "");
const secondsOf = (text) => text.split(":").reduce((sum, part) => 60 * sum + Number(part), 0);

const button = (name) => page.getByRole("button", { name, exact: true });
const plot = (title) => page.locator(".panel", { has: page.getByRole("heading", { name: title }) }).locator(".u-over");
const position = async () => secondsOf((await page.locator("#clock").textContent()).split(" / ")[0]);
const facts = async () => JSON.parse(await page.locator("#facts").textContent());

/** Where values lie along an axis, by its labels: [value, place] of each. */
function axis(labels) {
  const [[value, place], [last, end]] = [labels[0], labels.at(-1)];
  const unit = (end - place) / (last - value);
  const placeOf = (one) => place + (one - value) * unit;
  labels.forEach(([one, at]) => near(at, placeOf(one), 1, `place of label ${one}`));
  return { placeOf, valueAt: (at) => value + (at - place) / unit };
}

/** A panel as it is seen: colours as "r,g,b", the axes x (seconds) and y, and all text with its place. */
async function look(title) {
  const seen = await plot(title).evaluate((over) => {
    const canvas = over.parentElement.querySelector("canvas");
    const { offsetLeft, offsetTop, clientWidth: width, clientHeight: height } = over;
    const data = window.pixelsOf(canvas, offsetLeft, offsetTop, width, height);
    let pixels = "";
    for (let i = 0; i < data.length; i += 4096) {
      pixels += String.fromCharCode(...data.subarray(i, i + 4096));
    }
    return { width, height, pixels, texts: canvas.texts.map(([text, x, y]) => [text, x - offsetLeft, y - offsetTop]) };
  });
  const { width, height, texts } = seen;
  const pixels = Buffer.from(seen.pixels, "latin1");
  const colour = (x, y) => pixels.subarray(4 * (y * width + x), 4 * (y * width + x) + 3).join();
  /** Of a pixel column the places where a colour begins and ends; null without it. */
  const all = [...Array(height).keys()];
  const span = (x, wanted) => {
    const rows = all.filter((y) => colour(x, y) === wanted);
    return rows.length > 0 ? [rows[0], rows.at(-1) + 1] : null;
  };
  /** The row of a pixel column that is most like a colour: where a thin line is, between pixels as it may be. */
  const likest = (x, wanted) => {
    const far = (y) => distance(colour(x, y).split(","), wanted.split(","));
    return all.reduce((best, y) => far(y) < far(best) ? y : best);
  };
  const x = axis(texts.filter(([, , y]) => y > height).map(([text, place]) => [secondsOf(text), place]));
  return {
    width, height, texts, colour, span, likest, x,
    get y() {
      return axis(texts.filter(([, place]) => place < 0).map(([text, , place]) => [Number(text.replace("\u2212", "-")), place]));
    },
    column: (seconds) => Math.floor(x.placeOf(seconds)),
    /** The time at which a pixel column first looks like this. */
    first: (like) => x.valueAt([...Array(width).keys()].findIndex(like) + 0.5),
  };
}

/** A colour of the style, as "r,g,b". */
async function styleColour(name) {
  const hex = await page.evaluate((one) => getComputedStyle(document.documentElement).getPropertyValue(one), `--${name}`);
  return hex.match(/\w\w/g).map((part) => parseInt(part, 16)).join();
}

/** That a panel has lines at these places, with names to them. */
async function thresholds(panel, values, unit, tolerance) {
  for (const [name, value] of Object.entries(values)) {
    const colour = await styleColour(name);
    const line = panel.span([...Array(40).keys()].find((x) => panel.span(x, colour)), colour);
    near(panel.y.valueAt((line[0] + line[1]) / 2), value, tolerance, `threshold ${name}`);
    assert.ok(panel.texts.some(([text, , y]) => text === `${name} ${value}${unit}`.replace("-", "\u2212") && Math.abs(y - panel.y.placeOf(value)) < 5));
  }
}

/** The level that a colour of the spectrogram stands for, by the picture of the scale above it. */
async function colourScale(title) {
  const { ends, colours } = await page.locator(".panel", { has: page.getByRole("heading", { name: title }) }).locator(".scale").evaluate((scale) => {
    const canvas = scale.querySelector("canvas");
    const data = window.pixelsOf(canvas, 0, 0, canvas.width, 1);
    return {
      ends: [scale.firstChild, scale.lastChild].map((text) => parseFloat(text.textContent.replace("\u2212", "-"))),
      colours: Array.from({ length: canvas.width }, (_, i) => Array.from(data.subarray(4 * i, 4 * i + 3))),
    };
  });
  return (colour) => {
    const far = colours.map((one) => distance(one, colour.split(",")));
    return ends[0] + (ends[1] - ends[0]) * far.indexOf(Math.min(...far)) / (colours.length - 1);
  };
}

/** What is in view, in parts of the recording: {from, span}. */
async function inView() {
  await page.evaluate(() => new Promise((done) => { requestAnimationFrame(() => requestAnimationFrame(done)); }));
  return page.locator("#overview-window").evaluate(({ style }) => ({ from: parseFloat(style.left) / 100, span: parseFloat(style.width) / 100 }));
}

/** Drags the mouse over a panel, from one part of its width to another. */
async function drag(title, from, to) {
  const box = await plot(title).boundingBox();
  await page.mouse.move(box.x + from * box.width, box.y + 20);
  await page.mouse.down();
  await page.mouse.move(box.x + to * box.width, box.y + 25, { steps: 4 });
  await page.mouse.up();
  return inView();
}

/** What the page's own readout says of a part of a panel's width. */
async function readout(title, part) {
  const box = await plot(title).boundingBox();
  await page.mouse.move(box.x + part * box.width, box.y + box.height / 2);
  const [, time, level] = (await page.locator("#readout").textContent()).match(/^([\d.:]+) \S+?(?:, level (\S+) dB)?$/);
  return { time: secondsOf(time), level: level && Number(level.replace("\u2212", "-")) };
}

// The page's policy lets no text run as script, which waitForFunction would need.
async function positionReaches(seconds) {
  for (const end = Date.now() + 15000; await position() < seconds;) {
    assert.ok(Date.now() < end, `the position does not reach ${seconds} s`);
    await page.waitForTimeout(20);
  }
}

after(async () => {
  await browser.close();
  rmSync(folder, { recursive: true, force: true });
});

shows("signals are where they are, in light and, at once, in dark", made, async () => {
  assert.deepEqual(await page.locator(".panel h2").evaluateAll((all) => all.map((h) => h.firstChild.textContent)), PANELS);
  const frames = run("frames", made.input, "-f", "jsonl").toString().trim().split("\n").map((line) => JSON.parse(line));
  const papers = [];
  for (const colorScheme of ["light", "dark"]) {
    await page.emulateMedia({ colorScheme });
    await page.keyboard.press("0");
    await page.waitForTimeout(100);
    await inView();
    papers.push(await styleColour("paper"));

    const heights = {};
    for (const [title, name] of [["Waveform before", "before"], ["Waveform after", "after"]]) {
      const [panel, colour] = [await look(title), await styleColour(name)];
      const ends = (seconds) => (panel.span(panel.column(seconds), colour) ?? [panel.height / 2, panel.height / 2]).map(panel.y.valueAt);
      const loud = (ends(5.5)[0] - ends(5.5)[1]) / 2;
      heights[name] = [loud, ends(8)[0] - ends(8)[1]];
      near(ends(5.5)[0], loud, 0.02, `${title}: as far up as down`);
      near(panel.first((x) => panel.span(x, colour)?.[1] - panel.span(x, colour)?.[0] > panel.height / 4), BURST.from, 0.04, `${title}: burst`);
      assert.ok(ends(5.92)[0] > 0.9 * loud && ends(6.08)[0] < 0.5 * loud, `${title}: end of the burst`);
    }
    near(heights.before[0], BURST.amplitude / 32768 + 0.04, 0.02, "the burst's amplitude");
    near(heights.after[0], BURST.amplitude / 2 / 32768, 0.03, "about half of it after the suppressor");
    assert.ok(heights.before[1] > 0.07 && heights.after[1] < 0.03, `the noise: ${JSON.stringify(heights)}`);

    for (const title of ["Spectrogram before", "Spectrogram after"]) {
      const [panel, levelOf] = [await look(title), await colourScale(title)];
      const spectrum = (seconds) => Array.from({ length: panel.height }, (_, y) => levelOf(panel.colour(panel.column(seconds), y)));
      for (const part of [0.1, 0.5, 0.9]) {
        const levels = spectrum(SWEEP.from + part * (SWEEP.to - SWEEP.from));
        const row = levels.indexOf(Math.max(...levels));
        near(panel.y.valueAt(row + 0.5), SWEEP.low + part * (SWEEP.high - SWEEP.low), 120, `${title}: Hz at ${part} of the sweep`);
      }
      near(panel.y.valueAt(0), made.rate / 2, 30, `${title}: Hz at its top`);
      assert.equal(levelOf(papers.at(-1)), -90, "silence is the paper's colour");
      // Of both channels the mean power. With more rows than pixels, a single row loses some 2 dB to those beside it.
      const expected = 20 * Math.log10(BURST.amplitude / 32768) + 10 * Math.log10((1 + 1 / 4) / 2) - (title.endsWith("after") ? 6 : 0);
      near(Math.max(...spectrum(5.5)), expected - 2, 1.5, `${title}: the burst's level`);
      const quiet = Math.max(...spectrum(8).slice(20, -20));
      assert.ok(title.endsWith("before") ? quiet > -60 : quiet < -60, `${title}: the noise, ${quiet} dB`);
    }

    const strip = await page.locator("#overview canvas").evaluate((canvas) =>
      Array.from(window.pixelsOf(canvas, 0, 0, canvas.width, 1)));
    const at = (seconds) => { const i = 4 * Math.floor(seconds / made.seconds * strip.length / 4); return strip.slice(i, i + 3).join(); };
    const [no, yes] = [papers.at(-1), await styleColour("speech")];
    assert.deepEqual([4.95, 5.05, 5.95, 6.1, 8.9, 9.1, 11.9, 12.2].map(at), [no, yes, yes, no, no, yes, yes, no], "segments in the overview");

    // Closer, around the start of the burst; then within it.
    await drag("Level", 4.7 / made.seconds, 5.3 / made.seconds);
    const level = await look("Level");
    await thresholds(level, { enter: -45, stay: -50 }, " dB", 0.5);
    const [curve, speech] = [await styleColour("level"), await styleColour("speech")];
    const steady = frames.find(({ end }) => end > 5.2).level;
    near(level.y.valueAt(level.likest(level.column(5.2), curve) + 0.5), steady, 1, "level of the burst");
    near((await readout("Level", level.x.placeOf(5.2) / level.width)).level, steady, 0.1, "and its readout");
    near(level.first((x) => level.likest(x, curve) < level.y.placeOf(-30)), BURST.from, 0.015, "the level rises");
    const decision = await look("Decision");
    for (const [colour, label, begins] of [[curve, "flag", frames.find(({ speech: flag, start }) => flag && start > 4).start], [speech, "segments", BURST.from]]) {
      near(decision.first((x) => decision.span(x, colour)), begins, label === "flag" ? 0.002 : 0.012, `${label} begin`);
      const [, , y] = decision.texts.find(([text]) => text === label);
      near((decision.span(decision.width - 5, colour)[0] + decision.span(decision.width - 5, colour)[1]) / 2, y, 3, `row of the ${label}`);
    }
    await drag("Level", 0.7, 0.9);
    const inside = await look("Decision");
    assert.ok([0, inside.width - 1].every((x) => inside.span(x, curve) && inside.span(x, speech)), "bars from side to side");
  }
  const [light, dark] = papers.map((rgb) => Math.max(...rgb.split(",")));
  assert.ok(light > 200 && dark < 60);
}, { viewport: { width: 720, height: 1400 } });

shows("the score where it decides, and no threshold in the level", scored, async () => {
  const frames = run("frames", scored.input, "-f", "jsonl").toString().trim().split("\n").map((line) => JSON.parse(line));
  const [panel, curve] = [await look("Score"), await styleColour("level")];
  await thresholds(panel, { enter: 0.5, stay: 0.4 }, "", 0.01);
  for (const seconds of [4.5, 5.7, 10.1, 17.8]) {
    const { score } = frames.find(({ end }) => end > seconds);
    near(panel.y.valueAt(panel.likest(panel.column(seconds), curve) + 0.5), score, 0.03, `score at ${seconds} s`);
  }
  assert.ok(!(await look("Level")).texts.some(([text]) => text.startsWith("enter")));
});

shows("plays what its buttons say, sample for sample, and switches without losing the position", made, async () => {
  const cleaned = new Uint8Array(run("clean", made.input, "-"));
  assert.equal(await position(), 0);
  await button("Play").click();
  await positionReaches(0.3);
  for (const [name, samples] of [["After", new Int16Array(cleaned.buffer)], ["Before", made.samples]]) {
    const clicked = Date.now();
    const old = await position();
    await button(name).click();
    const switched = await position();
    // Between the two readings it can only have gone on for as long as they were apart.
    assert.ok(switched >= old && switched <= old + (Date.now() - clicked) / 1000 + 0.05, `${old} to ${switched}`);
    await positionReaches(switched + 0.1);
    assert.equal(await button(name).getAttribute("aria-pressed"), "true");
    assert.ok(await page.evaluate((rate) => window.heard(rate), made.rate) === samples.join(), name);
  }
  await button("Pause").click();
  await page.waitForTimeout(100); // what the player had under way comes to its end
  const paused = await position();
  await page.waitForTimeout(200);
  assert.equal(await position(), paused);
  await page.keyboard.press("b");
  assert.equal(await position(), paused);
  assert.equal(await button("After").getAttribute("aria-pressed"), "true");
}, { old: true });

for (const [input, parts, last] of [[hums, 1, "open"], [slow, 2, "open"], [long, 3, ""]]) {
  shows(`shows what detect finds, in ${["seconds", "minutes", "hours"][parts - 1]}`, input, async () => {
    const [found] = JSON.parse(run("detect", input.input, "-f", "json"));
    const ms = (samples, withParts) => clock(Math.floor((2000 * samples + found.rate) / (2 * found.rate)), withParts); // halves up
    const rows = page.locator("#segments tbody tr");
    if (found.segments.length > 200) {
      assert.equal(await rows.count(), 200);
      await button(`Show more (${found.segments.length - 200} left)`).click();
    }
    const cells = await rows.evaluateAll((all) => all.map((row) => [...row.cells].slice(1).map((cell) => cell.textContent)));
    assert.deepEqual(cells, found.segments.map(({ start_sample: start, end_sample: end, open: unfinished }, i) =>
      [String(i + 1), ms(start, parts), ms(end, parts), ms(end - start, 1), unfinished ? "open" : ""]));
    assert.equal(cells.at(-1).at(-1), last);
    assert.equal(await page.locator("#clock").textContent(), `${clock(0, parts)} / ${clock(1000 * input.seconds, parts)}`);
    const speech = found.segments.reduce((sum, { start_sample: start, end_sample: end }) => sum + end - start, 0);
    const count = `${found.segments.length} speech segment${found.segments.length === 1 ? "" : "s"}`;
    assert.equal(await page.locator("#summary").textContent(), `${clock(1000 * input.seconds, parts)} ` +
      `${["s", "min:s", "h:min:s"][parts - 1]} at ${input.rate} Hz, ${count}, ${ms(speech, 1)} s of speech (${(100 * speech / found.samples).toFixed(1)} %)`);
    const facts = Object.fromEntries(await page.locator("#facts-list dt").evaluateAll((all) =>
      all.map((label) => [label.textContent, label.nextElementSibling.textContent])));
    const known = { hums: { "Delay taken out": "720 samples (45 ms)", "Onset run": "480 samples (30 ms)",
      "Hang-over run": "19200 samples (1200 ms)" }, slow: { "As read": "3000 Hz, 2 channels",
      Alignment: "; padded at the end 150 samples (50 ms)" }, long: {} };
    for (const [label, expected] of Object.entries({ ...known[input.name], File: input.input.at(-1), "Sampling rate": `${input.rate} Hz`,
      "SHA-256 of the samples": found.sha256, Length: `${found.samples} samples`, Frames: `${found.frames} of ${found.frame} samples`,
      Tool: "korvane-vad 3.0", Library: "Korvane VAD v3.0", "Bit-exact input": "yes" })) {
      assert.ok(facts[label]?.includes(expected), `${label}: ${expected} in ${JSON.stringify(facts)}`);
    }
    assert.equal(facts.Alignment, `delay at both ends, onset run and hang-over run taken out${known[input.name].Alignment ?? ""}`);
    assert.match(await page.title(), new RegExp(`^${input.name}\\.raw`));
  });
}

shows("keeps an hour's places and extremes, and shows the segment that is asked for", long, async () => {
  const waveform = await look("Waveform before");
  const colour = await styleColour("before");
  for (const start of [16, 112 * 16, 229 * 16]) {
    for (const [seconds, peak] of [[start + 1, 9000 / 32768], [start + 11, 0]]) {
      // Three seconds to a pixel: the tone may be in the next one.
      const spans = [-1, 0, 1].map((i) => waveform.span(waveform.column(seconds) + i, colour) ?? [waveform.height / 2]);
      near(waveform.y.valueAt(Math.min(...spans.map(([top]) => top))), peak, 0.03, `waveform at ${seconds} s`);
    }
  }
  const dragged = await drag("Level", 0.5, 0.51);
  const { segments } = await facts();
  await page.getByRole("button", { name: "Show segment 20" }).first().click();
  const [start, end] = segments[19].map((samples) => samples / long.rate);
  const { from, span } = await inView();
  near(await position(), start, 0.001, "position");
  near(span, dragged.span, 1e-6, "span");
  near((from + span / 2) * long.seconds, (start + end) / 2, 0.5, "middle");
});

shows("zooms with wheel, mouse, keys and buttons, all panels together, and back", hums, async () => {
  assert.deepEqual(await inView(), { from: 0, span: 1 });
  const decision = await look("Decision");
  assert.ok(decision.span(decision.width - 3, await styleColour("level")), "the unfinished flag lasts to the end");
  const anchor = (await readout("Waveform before", 0.3)).time;
  await page.mouse.wheel(0, -400);
  const wheeled = await inView();
  near(wheeled.span, Math.exp(-0.8), 1e-4, "span after the wheel");
  // The pointer has whole pixels of a thousand and more.
  near((await readout("Waveform before", 0.3)).time, anchor, 0.02, "the time under the pointer");
  for (const title of PANELS) {
    const middle = hums.seconds * (wheeled.from + wheeled.span / 2);
    near((await readout(title, 0.5)).time, middle, 0.02, `middle of ${title}`);
    const { x, width } = await look(title);
    near(x.valueAt(width / 2), middle, 0.02, `middle of ${title} by its labels`);
  }
  await page.keyboard.press("0");
  assert.deepEqual(await inView(), { from: 0, span: 1 });
  const dragged = await drag("Level", 0.25, 0.5);
  near(dragged.from, 0.25, 0.002, "start of the dragged range");
  near(dragged.span, 0.25, 0.002, "span of the dragged range");
  assert.equal(await position(), 0); // a drag is no click

  const press = (key) => () => page.locator("#panels").press(key); // keys that elsewhere scroll
  const { width } = await plot("Level").boundingBox();
  const strip = await page.locator("#overview").boundingBox();
  for (const [what, act, from, span] of [
    ["+", press("+"), 0.3125, 0.125],
    ["button", () => button("Zoom out").click(), 0.25, 0.25],
    ["page down", press("PageDown"), 0.45, 0.25],
    ["page up", press("PageUp"), 0.25, 0.25],
    ["-", press("-"), 0.125, 0.5],
    ["button", () => button("Zoom in").click(), 0.25, 0.25],
    ["wheel sideways", async () => { await plot("Level").hover(); await page.mouse.wheel(width / 2, 0); }, 0.375, 0.25],
    ["click on the strip", () => page.mouse.click(strip.x + 0.75 * strip.width, strip.y + 5), 0.625, 0.25],
    ["page down to the end", press("PageDown"), 0.75, 0.25],
    ["double click", () => plot("Level").dblclick(), 0, 1],
  ]) {
    await act();
    const seen = await inView();
    near(seen.from, from, 0.003, `start after ${what}`);
    near(seen.span, span, 0.001, `span after ${what}`);
  }
  for (let i = 0; i < 30; i++) {
    await page.keyboard.press("+");
  }
  near((await inView()).span * hums.seconds, 32 / hums.rate, 1e-6, "never less than a few samples");
});

describe("playback", () => {
  shows("moves to where it is clicked, and the charts along with it", hums, async () => {
    const box = await plot("Spectrogram after").boundingBox();
    await page.mouse.click(box.x + box.width / 3, box.y + 50);
    near(await position(), 6, 18 / box.width, "position");
    await page.mouse.wheel(0, -600);
    const { from, span } = await inView();
    await page.mouse.click(box.x + box.width / 2, box.y + 50);
    near(await position(), 18 * (from + span / 2), 18 * span / box.width + 0.001, "position");
    for (const title of PANELS) {
      const head = await plot(title).locator(".playhead").boundingBox();
      near(head.x + head.width / 2, box.x + box.width / 2, 1.5, "cursor");
    }
    const head = await page.locator("#overview-head").evaluate(({ style }) => parseFloat(style.left));
    near(head, 100 * (from + span / 2), 0.2, "cursor in the overview");
    // A press that begins elsewhere is no click, even if it ends where there was one.
    await page.keyboard.press("ArrowLeft");
    const moved = await position();
    await page.locator("h1").hover();
    await page.mouse.down();
    await page.mouse.move(box.x + box.width / 2, box.y + 50);
    await page.mouse.up();
    assert.equal(await position(), moved);
    // Playing on beyond the right end takes them along.
    await page.mouse.click(box.x + box.width - 3, box.y + 50);
    await button("Play").click();
    await positionReaches(18 * (from + span) + 0.1);
    const followed = await inView();
    near(followed.from, from + 0.95 * span, 0.06 * span, "the next stretch");
    near(followed.span, span, 1e-6, "of the same length");
  });

  shows("plays a segment from its start to its end", hums, async () => {
    const [start, end] = (await facts()).segments[1].map((samples) => samples / hums.rate);
    await button("Play segment 2").click();
    near(await position(), start + 0.5, 0.501, "position");
    assert.equal(await page.locator("tr.current td").nth(1).textContent(), "2");
    await button("Play").waitFor(); // it has stopped by itself
    near(await position(), end, 0.001, "position at the end");
    assert.equal(await page.locator("tr.current").count(), 0);
  });

  shows("follows the keyboard", hums, async () => {
    const starts = (await facts()).segments.map(([start]) => start / hums.rate);
    await page.keyboard.press("Tab");
    assert.equal(await page.evaluate(() => document.activeElement.id), "play");
    for (const [key, expected] of [["n", starts[0]], ["n", starts[1]], ["ArrowRight", starts[1] + 1], ["Shift+ArrowLeft", starts[1] - 4],
      ["Shift+ArrowRight", starts[1] + 1], ["p", starts[1]], ["p", starts[0]], ["ArrowLeft", starts[0] - 1],
      ["Shift+ArrowLeft", 0], ["p", 0]]) {
      await page.keyboard.press(key);
      near(await position(), expected, 0.001, `position after ${key}`);
    }
    await page.keyboard.press(" "); // on the focused button: once, not twice
    await button("Pause").waitFor();
    await page.locator("#panels").focus();
    await page.keyboard.press(" ");
    await button("Play").waitFor();
  });

  shows("plays the lowest rate that it brings audio for", slow, async () => {
    await button("Play").click();
    await positionReaches(0.2);
  });
});

it("brings small audio that lies where the recording's does", async () => {
  await open(report(hums.input, "mp3"));
  await button("Play").click();
  await positionReaches(0.2);
  for (const name of ["Before", "After"]) {
    await button(name).click();
    const sound = (await page.evaluate((rate) => window.heard(rate), hums.rate)).split(",").map(Number);
    near(sound.length / hums.rate, hums.seconds, 0.001, `length ${name}`);
    near(sound.findIndex((one) => Math.abs(one) > 1500) / hums.rate, 3, 0.03, `first hum ${name}`);
  }
  await closeQuietly();
});

shows("saves the segments as the command line writes them", hums, async () => {
  const formats = await page.getByLabel("Save as").locator("option").allInnerTexts();
  assert.ok(formats.length > 7);
  for (const format of formats) {
    await page.getByLabel("Save as").selectOption(format);
    const [download] = await Promise.all([page.waitForEvent("download"), button("Save").click()]);
    assert.match(download.suggestedFilename(), /^hums\.\w+$/);
    const rules = ["--pad-start", "0", "--pad-end", "0"]; // those of captions are others
    assert.equal(readFileSync(await download.path(), "utf8"), run("detect", hums.input, "-f", format, ...rules).toString(), format);
  }
  const [strip, chart] = [await page.locator("#overview").boundingBox(), await plot("Waveform after").boundingBox()];
  near(strip.x, chart.x, 1, "start of the overview");
  near(strip.x + strip.width, chart.x + chart.width, 1, "end of the overview");
});

shows("shows a recording without speech and without audio", silent, async () => {
  assert.equal(await page.locator("#segments").innerText(), "No speech.");
  assert.match(await page.locator("#note").innerText(), /below 3000 Hz/);
  assert.ok(await button("Play").isDisabled());
  await page.keyboard.press("Shift+ArrowRight");
  assert.equal(await position(), 1); // no further than the end
});

describe("on a phone", () => {
  const phone = (width) => ({ viewport: { width, height: 800 }, deviceScaleFactor: 2, isMobile: true, hasTouch: true });

  for (const width of [320, 390]) {
    shows(`fits into ${width} pixels`, hums, async () => {
      await page.locator("details").evaluateAll((all) => all.forEach((one) => { one.open = true; }));
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
      const plots = await page.locator(".u-over").evaluateAll((all) => all.map((over) => over.getBoundingClientRect().width));
      assert.ok(plots.every((one) => one > 0.65 * width && one < width), String(plots));
    }, phone(width));
  }

  shows("zooms by pinch, moves by swipe, seeks by tap", hums, async () => {
    const box = await plot("Waveform after").boundingBox();
    const y = box.y + box.height / 2;
    const client = await page.context().newCDPSession(page);
    const touch = (type, ...xs) => client.send("Input.dispatchTouchEvent",
      { type, touchPoints: xs.map((x, id) => ({ x: box.x + x * box.width, y, id })) });
    await touch("touchStart", 0.4, 0.6);
    for (const spread of [0.15, 0.2, 0.25, 0.3]) {
      await touch("touchMove", 0.5 - spread, 0.5 + spread);
    }
    await touch("touchEnd");
    assert.equal(await position(), 0); // a pinch is no tap
    const pinched = await inView();
    near(pinched.span, 1 / 3, 0.02, "span after fingers went from 0.2 to 0.6 of the width");
    near(pinched.from + pinched.span / 2, 0.5, 0.02, "middle");
    await touch("touchStart", 0.7);
    for (const x of [0.6, 0.5, 0.4, 0.3]) {
      await touch("touchMove", x);
    }
    await touch("touchEnd");
    const swiped = await inView();
    near(swiped.span, pinched.span, 1e-9, "span after the swipe");
    assert.ok(swiped.from > pinched.from + 0.2 * pinched.span, "the swipe moves on");
    await plot("Waveform after").tap();
    await positionReaches(1);
    near(await position(), 18 * (swiped.from + swiped.span / 2), 18 * swiped.span / box.width + 0.001, "position");
  }, phone(390));
});

describe("safety", () => {
  it("takes any file name for text", async () => {
    const path = join(folder, "<!--<script>\"></script><script>document.title = \"owned\"</script><img src=x onerror=alert(1)>" +
      "$& $` @data@ &lt; \u2028 \\u003c \u202e.wav");
    mkdirSync(dirname(path), { recursive: true });
    copyFileSync(SPEECH, path);
    await open(report([path]));
    assert.equal(await page.locator("#facts-list dd").first().textContent(), path);
    assert.equal(await page.locator("img").count(), 0);
    assert.notEqual(await page.title(), "owned");
    await closeQuietly();
    copyFileSync(SPEECH, Buffer.from(join(folder, "caf\xe9.wav"), "latin1"));
    const out = join(folder, "latin1.html");
    // Node passes arguments as UTF-8 only; the shell passes bytes.
    execFileSync("sh", ["-c", `"$0" report "$(printf '${folder}/caf\\351.wav')" -o "$1"`, TOOL, out]);
    await open(out);
    assert.equal(await page.locator("h1").textContent(), "caf\ufffd.wav");
    await closeQuietly();
  });

  it("lets nothing run and nothing be fetched but what it was built with", async () => {
    let hits = 0;
    const server = createServer((_, response) => { hits++; response.end("x"); });
    await new Promise((done) => { server.listen(0, "127.0.0.1", done); });
    const url = `http://127.0.0.1:${server.address().port}/`;
    // The page's own elements, put where a hole in the escaping would put them.
    const intruder = `<script>window.owned = 1</script><img src="${url}a"><link rel="stylesheet" href="${url}b">` +
      `<iframe src="${url}c"></iframe><b onclick="window.owned = 2" id="b">b</b>`;
    const file = join(folder, "intruded.html");
    writeFileSync(file, readFileSync(report(silent.input), "utf8").replace("</main>", `</main>${intruder}`));
    await open(file, { offline: false });
    const fetched = await page.evaluate((target) => fetch(target, { mode: "no-cors" }).then(() => "fetched", () => "refused"), url);
    await page.locator("#b").click();
    assert.equal(await page.evaluate(() => window.owned), undefined);
    assert.equal(fetched, "refused");
    assert.equal(hits, 0);
    assert.ok(complaints.length >= 4, "the policy says what it refused");
    await page.context().close();
    server.close();
  });
});
