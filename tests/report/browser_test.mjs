// The report in headless Chromium: it draws, zooms, plays, obeys the keyboard and fits a phone, and it
// asks for nothing outside itself.
//
// KORVANE_VAD_TOOL, NODE_PATH and CHROMIUM say where things are; REPORT_SCREENSHOTS names a folder that
// pictures are wanted in.
import assert from "node:assert/strict";
import { execFileSync } from "node:child_process";
import { copyFileSync, mkdirSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { createServer } from "node:http";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, afterEach, before, beforeEach, describe, it } from "node:test";
import { pathToFileURL } from "node:url";

const { chromium } = createRequire(import.meta.url)("playwright-core");
const TOOL = process.env.KORVANE_VAD_TOOL;
const SPEECH = "/usr/share/sounds/alsa/Front_Center.wav";
const PANELS = ["Waveform before", "Waveform after", "Level of the cleaned frames", "Decision", "Spectrogram before",
  "Spectrogram after"];

let folder;
let browser;
let page;
let complaints; // of the console and of scripts
let requests;

/** A mono WAV file of 16-bit samples. */
function writeWav(name, rate, samples) {
  const bytes = Buffer.alloc(44 + 2 * samples.length);
  bytes.write("RIFF", 0);
  bytes.writeUInt32LE(36 + 2 * samples.length, 4);
  bytes.write("WAVEfmt ", 8);
  bytes.writeUInt32LE(16, 16);
  bytes.writeUInt16LE(1, 20);
  bytes.writeUInt16LE(1, 22);
  bytes.writeUInt32LE(rate, 24);
  bytes.writeUInt32LE(2 * rate, 28);
  bytes.writeUInt16LE(2, 32);
  bytes.writeUInt16LE(16, 34);
  bytes.write("data", 36);
  bytes.writeUInt32LE(2 * samples.length, 40);
  samples.forEach((sample, i) => bytes.writeInt16LE(Math.round(sample), 44 + 2 * i));
  writeFileSync(name, bytes);
}

/** Three seconds of hum of 300 Hz, each with silence of three seconds before it. */
function hums(rate, seconds = 18) {
  return Array.from({ length: seconds * rate }, (_, i) => i / rate % 6 < 3 ? 0 : 9000 * Math.sin(2 * Math.PI * 300 * i / rate));
}

const MADE = { rate: 16000, seconds: 16, burst: [5, 6], sweep: [9, 12], low: 500, high: 7000 };

/** Steady noise, in it a burst of 1 kHz and a sweep that rises evenly from `low` to `high` Hz. */
function madeSignal({ rate, seconds, burst, sweep, low, high }) {
  let seed = 1;
  const noise = () => (seed = (1103515245 * seed + 12345) % 2147483648) / 2147483648 - 0.5;
  return Array.from({ length: seconds * rate }, (_, i) => {
    const t = i / rate;
    const [from, to] = sweep;
    const part = (t - from) / (to - from);
    return 3000 * noise() + (t >= burst[0] && t < burst[1] ? 13000 * Math.sin(2000 * Math.PI * t) : 0) +
      (part >= 0 && part < 1 ? 10000 * Math.sin(2 * Math.PI * (t - from) * (low + (high - low) * part / 2)) : 0);
  });
}

/** More than an hour with more than 200 segments: two seconds of a tone in every sixteen. */
function longSignal(rate) {
  return Array.from({ length: 230 * 16 * rate }, (_, i) => i / rate % 16 < 2 ? 9000 * Math.sin(600 * Math.PI * i / rate) : 0);
}

let made = 0;
function report(recording) {
  const out = join(folder, `page-${made++}.html`);
  execFileSync(TOOL, ["report", recording, "-o", out]);
  return out;
}

const reports = {};

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
  // The player's audio elements and what they were given.
  await page.addInitScript(() => {
    window.players = [];
    window.Audio = class extends window.Audio {
      constructor() {
        super();
        window.players.push(this);
      }
    };
    const blobs = new Map();
    const url = URL.createObjectURL.bind(URL);
    URL.createObjectURL = (blob) => {
      const made = url(blob);
      blobs.set(made, blob);
      return made;
    };
    window.heard = async (rate) => {
      const [player] = window.players.filter((one) => !one.paused);
      const bytes = await blobs.get(player.src).arrayBuffer();
      const sound = await new OfflineAudioContext(1, rate, rate).decodeAudioData(bytes);
      return Array.from(sound.getChannelData(0));
    };
  });
  await page.goto(pathToFileURL(file).href);
  await page.locator("html[data-ready]").waitFor({ state: "attached" });
}

async function screenshot(name, options) {
  if (process.env.REPORT_SCREENSHOTS) {
    await page.screenshot({ path: join(process.env.REPORT_SCREENSHOTS, `${name}.png`), ...options });
  }
}

function plot(title) {
  return page.locator(".panel", { has: page.getByRole("heading", { name: title }) }).locator(".u-over");
}

/** The pixels of a panel's plot: how many there are of each colour, as "r,g,b". */
async function pixels(title) {
  const counts = await plot(title).evaluate((over) => {
    const canvas = over.parentElement.querySelector("canvas");
    const scale = canvas.width / canvas.clientWidth;
    const { offsetLeft, offsetTop, clientWidth, clientHeight } = over;
    const copy = new OffscreenCanvas(clientWidth * scale, clientHeight * scale).getContext("2d");
    copy.drawImage(canvas, -offsetLeft * scale, -offsetTop * scale);
    const image = copy.getImageData(0, 0, clientWidth * scale, clientHeight * scale).data;
    const counts = {};
    for (let i = 0; i < image.length; i += 4) {
      const key = image[i + 3] < 255 ? "transparent" : image.slice(i, i + 3).join(",");
      counts[key] = (counts[key] ?? 0) + 1;
    }
    return counts;
  });
  return new Map(Object.entries(counts));
}

/**
 * A panel as it is seen: for each pixel column [first row, last row, rows] of a colour, as far as it has any, and
 * the row that stands out most from the paper; and the panel's size.
 */
async function seen(title, rgb, darkTheme = false) {
  return plot(title).evaluate((over, [wanted, dark]) => {
    const canvas = over.parentElement.querySelector("canvas");
    const { offsetLeft, offsetTop, clientWidth: width, clientHeight: height } = over;
    const copy = new OffscreenCanvas(width, height).getContext("2d");
    copy.drawImage(canvas, -offsetLeft, -offsetTop);
    const { data } = copy.getImageData(0, 0, width, height);
    const [red, green, blue] = wanted.split(",").map(Number);
    const columns = [];
    for (let x = 0; x < width; x++) {
      let [first, last, rows, loudest, most] = [null, null, 0, null, -1];
      for (let y = 0; y < height; y++) {
        const at = 4 * (y * width + x);
        // Nearly: a line of one pixel is smoothed.
        if (Math.abs(data[at] - red) + Math.abs(data[at + 1] - green) + Math.abs(data[at + 2] - blue) < 70) {
          first ??= y;
          last = y;
          rows++;
        }
        const sum = data[at] + data[at + 1] + data[at + 2];
        const strength = dark ? sum : 765 - sum;
        if (strength > most) {
          [most, loudest] = [strength, y];
        }
      }
      columns.push({ first, last, rows, loudest });
    }
    return { columns, width, height };
  }, [rgb, darkTheme]);
}

/** Shows a stretch of time, by the mouse. */
async function zoomTo(from, to, seconds) {
  await page.keyboard.press("0");
  await inView();
  const box = await plot("Level").boundingBox();
  const x = (time) => box.x + time / seconds * box.width;
  await page.mouse.move(x(from), box.y + 20);
  await page.mouse.down();
  await page.mouse.move(x(to), box.y + 25, { steps: 3 });
  await page.mouse.up();
  const { from: left, span } = await inView();
  return { from: left * seconds, span: span * seconds };
}

/** A colour of the style, as "r,g,b". */
function styleColour(name) {
  return page.evaluate((variable) => {
    const probe = document.createElement("i");
    probe.style.color = `var(--${variable})`;
    document.body.append(probe);
    const text = getComputedStyle(probe).color;
    probe.remove();
    return text.match(/\d+/g).slice(0, 3).join(",");
  }, name);
}

/** What is in view, in parts of the recording: {from, span}. */
async function inView() {
  await page.evaluate(() => new Promise((done) => { requestAnimationFrame(() => requestAnimationFrame(done)); }));
  return page.locator("#overview-window").evaluate(({ style }) => ({ from: parseFloat(style.left) / 100, span: parseFloat(style.width) / 100 }));
}

/** The time that a panel shows at a part of its width, in seconds, by the page's own readout. */
async function timeAt(title, part) {
  const box = await plot(title).boundingBox();
  await page.mouse.move(box.x + part * box.width, box.y + box.height / 2);
  return parseFloat(await page.locator("#readout").textContent());
}

async function position() {
  const [time] = (await page.locator("#clock").textContent()).split(" ");
  return time.split(":").reduce((units, part) => 60 * units + Number(part), 0);
}

// The page's policy lets no text run as script, which waitForFunction would need.
async function positionReaches(seconds) {
  for (const end = Date.now() + 15000; await position() < seconds;) {
    assert.ok(Date.now() < end, `the position does not reach ${seconds} s`);
    await page.waitForTimeout(20);
  }
}

const near = (actual, expected, tolerance, what) =>
  assert.ok(Math.abs(actual - expected) <= tolerance, `${what ?? "value"}: ${actual}, not ${expected} to within ${tolerance}`);

before(async () => {
  folder = mkdtempSync(join(tmpdir(), "korvane-report-"));
  const file = (name) => join(folder, name);
  copyFileSync(SPEECH, file("speech.wav"));
  writeWav(file("hums.wav"), 16000, hums(16000));
  writeWav(file("slow.wav"), 3000, hums(3000, 75));
  writeWav(file("silent.wav"), 2000, new Array(2000).fill(0));
  writeWav(file("made.wav"), MADE.rate, madeSignal(MADE));
  writeWav(file("long.wav"), 2000, longSignal(2000));
  for (const name of ["speech", "hums", "slow", "silent", "made", "long"]) {
    reports[name] = report(file(`${name}.wav`));
  }
  browser = await chromium.launch({
    executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync"],
  });
});

after(async () => {
  await browser?.close();
  rmSync(folder, { recursive: true, force: true });
});

/** After each test on a page: nothing to complain about, nothing asked for but the page and its audio. */
async function closeQuietly() {
  const outside = requests.filter((url) => !/^(file|blob|data):/.test(url));
  await page.context().close();
  assert.deepEqual(complaints, []);
  assert.deepEqual(outside, []);
}

for (const colorScheme of ["light", "dark"]) {
  it(`shows made signals where they are, ${colorScheme}`, async () => {
    const { rate, seconds, burst, sweep, low, high } = MADE;
    const dark = colorScheme === "dark";
    await open(reports.made, { colorScheme });
    const look = async (title, name) => seen(title, await styleColour(name), dark);
    const columnOf = ({ width }, time) => Math.floor(time / seconds * width);

    const heights = {};
    for (const [title, name] of [["Waveform before", "before"], ["Waveform after", "after"]]) {
      const picture = await look(title, name);
      const height = (time) => { const { first, last } = picture.columns[columnOf(picture, time)]; return first === null ? 0 : last - first + 1; };
      heights[name] = height(8);
      const tone = height(5.5);
      const full = picture.columns.findIndex(({ first, last }) => first !== null && last - first > tone / 2);
      near((full + 0.5) / picture.width * seconds, burst[0], 1.5 * seconds / picture.width, `${title}: start of the burst`);
      assert.ok(height(burst[1] - 0.05) > tone / 2 && height(burst[1] + 0.05) < tone / 2, `${title}: end of the burst`);
    }
    // The noise is heard before and all but gone after.
    assert.ok(heights.before >= 3 && heights.after <= heights.before / 2, JSON.stringify(heights));

    for (const title of ["Spectrogram before", "Spectrogram after"]) {
      const picture = await look(title, "paper");
      const spacing = rate / 2 / picture.height;
      for (const part of [0.1, 0.5, 0.9]) {
        const row = picture.columns[columnOf(picture, sweep[0] + part * (sweep[1] - sweep[0]))].loudest;
        near(rate / 2 - (row + 0.5) * spacing, low + part * (high - low), 150, `${title}: Hz at ${part} of the sweep`);
      }
    }

    const level = await look("Level", "enter");
    const row = (decibels) => -decibels / 100 * level.height;
    const middle = (picture, x) => (picture.columns[x].first + picture.columns[x].last) / 2;
    near(middle(level, 10), row(-45), 1.5, "the upper threshold's place");
    const stay = await look("Level", "stay");
    near(middle(stay, stay.columns.findIndex(({ first }) => first !== null)), row(-50), 1.5, "the lower threshold's place");

    const tone = 20 * Math.log10(13000 / Math.SQRT2 / 32768);
    const shown = await zoomTo(burst[0] - 0.3, burst[0] + 0.3, seconds);
    const timeOf = (picture, x) => shown.from + (x + 0.5) / picture.width * shown.span;
    const curve = await look("Level", "level");
    // A steady tone comes back about 6 dB lower.
    near(middle(curve, curve.width - 20) / curve.height * -100, tone - 6, 2, "level of the burst");
    const rises = curve.columns.findIndex(({ first }) => first !== null && first < row(-30));
    near(timeOf(curve, rises), burst[0], 0.02, "the level rises");
    const decision = await look("Decision", "level");
    const begins = decision.columns.findIndex(({ rows }) => rows > 0);
    near(timeOf(decision, begins), burst[0] + 0.02, 0.02, "the flag rises, after its onset of 30 ms");
    const segment = await look("Decision", "speech");
    near(timeOf(segment, segment.columns.findIndex(({ rows }) => rows > 0)), burst[0], 0.012, "the segment begins");
    await screenshot(`made-${colorScheme}`);
    await closeQuietly();
  });
}

it("plays what its buttons say", async () => {
  const { rate } = MADE;
  await open(reports.made);
  const rms = (x, from, to) => Math.sqrt(x.slice(from * rate, to * rate).reduce((sum, v) => sum + v * v, 0) / ((to - from) * rate));
  const decibels = {};
  await page.getByRole("button", { name: "Play", exact: true }).click();
  for (const name of ["After", "Before"]) {
    await page.getByRole("button", { name, exact: true }).click();
    await positionReaches(await position() + 0.1);
    const sound = await page.evaluate((samples) => window.heard(samples), rate);
    decibels[name] = [[5.2, 5.8], [7, 8.5]].map(([from, to]) => 20 * Math.log10(rms(sound, from, to)));
  }
  near(decibels.Before[0], 20 * Math.log10(13000 / Math.SQRT2 / 32768), 0.1, "the burst as it was");
  near(decibels.Before[1], 20 * Math.log10(3000 / Math.sqrt(12) / 32768), 0.3, "the noise as it was");
  near(decibels.After[0], decibels.Before[0] - 6, 2, "the burst, cleaned");
  assert.ok(decibels.After[1] < decibels.Before[1] - 15, "the noise, suppressed");
  await closeQuietly();
});

it("lists all segments of an hour and more, with hours and minutes", async () => {
  await open(reports.long);
  const rows = page.locator("#segments tbody tr");
  assert.equal(await rows.count(), 200);
  await page.getByRole("button", { name: "Show more (30 left)" }).click();
  assert.equal(await rows.count(), 230);
  const clock = (ms) => `${Math.floor(ms / 3600000)}:${String(Math.floor(ms / 60000) % 60).padStart(2, "0")}:` +
    `${String(Math.floor(ms / 1000) % 60).padStart(2, "0")}.${String(ms % 1000).padStart(3, "0")}`;
  const { segments } = JSON.parse(await page.locator("#facts").textContent());
  for (const index of [0, 3, 199, 200, 229]) {
    const cells = await rows.nth(index).locator("td").allTextContents();
    near(segments[index][0] / 2000, 16 * index, 0.2, "start of a tone");
    assert.equal(cells[2], clock(segments[index][0] / 2));
    assert.equal(cells[3], clock(segments[index][1] / 2));
  }
  assert.match(await page.locator("#clock").textContent(), /^0:00:00\.000 \/ 1:01:20\.000$/);
  await closeQuietly();
});

describe("real speech", () => {
  beforeEach(() => open(reports.speech));
  afterEach(closeQuietly);

  it("zooms with wheel, mouse, keys and buttons, all panels together, and back", async () => {
    assert.deepEqual(await inView(), { from: 0, span: 1 });
    const drawn = await pixels("Spectrogram before");
    const anchor = await timeAt("Waveform before", 0.3);
    await page.mouse.wheel(0, -400);
    const wheeled = await inView();
    near(wheeled.span, Math.exp(-0.8), 1e-4, "span after the wheel");
    // The readout has milliseconds, the pointer whole pixels of a thousand and more.
    near(await timeAt("Waveform before", 0.3), anchor, 0.003, "the time under the pointer");
    assert.notDeepEqual(await pixels("Spectrogram before"), drawn);
    for (const title of PANELS) {
      near(await timeAt(title, 0.5), 1.428 * (wheeled.from + wheeled.span / 2), 0.003, `middle of ${title}`);
    }

    await page.keyboard.press("0");
    assert.deepEqual(await inView(), { from: 0, span: 1 });
    const box = await plot("Level").boundingBox();
    await page.mouse.move(box.x + box.width * 0.25, box.y + 20);
    await page.mouse.down();
    await page.mouse.move(box.x + box.width * 0.5, box.y + 25, { steps: 4 });
    await page.mouse.up();
    const dragged = await inView();
    near(dragged.from, 0.25, 0.002, "start of the dragged range");
    near(dragged.span, 0.25, 0.002, "span of the dragged range");
    assert.equal(await position(), 0); // a drag is no click
    await screenshot("zoomed");

    await page.keyboard.press("+");
    near((await inView()).span, dragged.span / 2, 1e-6, "span after +");
    await page.getByRole("button", { name: "Zoom out" }).click();
    near((await inView()).span, dragged.span, 1e-6, "span after the button");
    const { from } = await inView();
    await plot("Level").hover();
    await page.mouse.wheel(box.width / 2, 0);
    near((await inView()).from, from + dragged.span / 2, 0.002, "start after a sideways wheel");
    await plot("Level").dblclick();
    assert.deepEqual(await inView(), { from: 0, span: 1 });
    for (let i = 0; i < 30; i++) {
      await page.keyboard.press("+");
    }
    assert.ok((await inView()).span * 1.428 >= 31 / 48000, "never less than a few samples");
  });

  it("knows its facts", async () => {
    const facts = JSON.parse(await page.locator("#facts").textContent());
    const text = await page.locator("#facts-list").innerText();
    for (const expected of [join(folder, "speech.wav"), "48000 Hz", "68545 samples", "867 samples (18.1 ms)",
      "480 samples (10 ms)", "19200 samples (400 ms)", facts.sha256, "korvane-vad 3.0", "Korvane VAD v3.0"]) {
      assert.ok(text.includes(expected), `${expected} in ${text}`);
    }
    assert.match(await page.title(), /^speech\.wav/);
  });

  it("is dark where darkness is asked for, at once", async () => {
    const light = [await pixels("Spectrogram after"), await styleColour("paper"), await styleColour("after")];
    await page.emulateMedia({ colorScheme: "dark" });
    await page.waitForTimeout(100);
    const dark = [await pixels("Spectrogram after"), await styleColour("paper"), await styleColour("after")];
    light.forEach((value, i) => assert.notDeepEqual(dark[i], value));
    const brightness = (rgb) => rgb.split(",").reduce((sum, part) => sum + Number(part), 0) / 3;
    assert.ok(brightness(light[1]) > 200 && brightness(dark[1]) < 60);
    // Most of the picture is silence, and silence is the paper's colour.
    for (const [map, paper] of [light, dark]) {
      const most = [...map].reduce((a, b) => (b[1] > a[1] ? b : a))[0];
      assert.equal(most, paper);
    }
    assert.ok((await pixels("Waveform after")).get(dark[2]) > 1000);
    await screenshot("dark", { fullPage: true });
  });
});

describe("playback", () => {
  beforeEach(() => open(reports.hums));
  afterEach(closeQuietly);

  it("plays both versions and switches without losing the position", async () => {
    assert.equal(await position(), 0);
    await page.getByRole("button", { name: "Play", exact: true }).click();
    await positionReaches(0.3);
    const clicked = Date.now();
    const heard = await position();
    await page.getByRole("button", { name: "Before", exact: true }).click();
    const switched = await position();
    // Between the two readings it can only have gone on for as long as they were apart.
    assert.ok(switched >= heard && switched <= heard + (Date.now() - clicked) / 1000 + 0.05, `${heard} to ${switched}`);
    assert.equal(await page.getByRole("button", { name: "Before", exact: true }).getAttribute("aria-pressed"), "true");
    await positionReaches(switched + 0.3);
    await page.getByRole("button", { name: "Pause", exact: true }).click();
    await page.waitForTimeout(100); // what the player had under way comes to its end
    const paused = await position();
    await page.waitForTimeout(200);
    assert.equal(await position(), paused);
    await page.keyboard.press("b");
    assert.equal(await position(), paused);
    assert.equal(await page.getByRole("button", { name: "After", exact: true }).getAttribute("aria-pressed"), "true");
  });

  it("moves to where it is clicked, in zoomed charts too", async () => {
    const box = await plot("Spectrogram after").boundingBox();
    await page.mouse.click(box.x + box.width / 3, box.y + 50);
    near(await position(), 6, 18 / box.width, "position");
    await page.mouse.wheel(0, -600);
    const { from, span } = await inView();
    await page.mouse.click(box.x + box.width / 2, box.y + 50);
    near(await position(), 18 * (from + span / 2), 18 * span / box.width + 0.001, "position");
    const head = await plot("Spectrogram after").locator(".playhead").boundingBox();
    near(head.x + head.width / 2, box.x + box.width / 2, 1.5, "cursor");
  });

  it("plays a segment from its start to its end", async () => {
    const { segments, source } = JSON.parse(await page.locator("#facts").textContent());
    const [start, end] = segments[1].map((samples) => samples / source.rate);
    await page.getByRole("button", { name: "Play segment 2" }).click();
    assert.ok(await position() >= start - 0.001);
    assert.equal(await page.locator("tr.current td").nth(1).textContent(), "2");
    await page.getByRole("button", { name: "Play", exact: true }).waitFor(); // it has stopped by itself
    near(await position(), end, 0.001, "position at the end");
  });

  it("follows the keyboard", async () => {
    const { segments, source } = JSON.parse(await page.locator("#facts").textContent());
    await page.keyboard.press("Tab");
    assert.equal(await page.evaluate(() => document.activeElement.id), "play");
    await page.keyboard.press("n");
    near(await position(), segments[0][0] / source.rate, 0.001, "first segment");
    await page.keyboard.press("n");
    near(await position(), segments[1][0] / source.rate, 0.001, "second segment");
    await page.keyboard.press("ArrowRight");
    near(await position(), segments[1][0] / source.rate + 1, 0.001, "a second on");
    await page.keyboard.press("Shift+ArrowLeft");
    near(await position(), segments[1][0] / source.rate - 4, 0.001, "five seconds back");
    await page.keyboard.press(" "); // on the focused button: once, not twice
    await page.getByRole("button", { name: "Pause", exact: true }).waitFor();
    await page.locator("#panels").focus();
    await page.keyboard.press(" ");
    await page.getByRole("button", { name: "Play", exact: true }).waitFor();
  });
});

it("shows what detect finds, rounded halves up", async () => {
  const recording = join(folder, "hums.wav");
  const found = JSON.parse(execFileSync(TOOL, ["detect", "-f", "json", recording]));
  await open(reports.hums);
  const ms = (samples) => {
    const rounded = (2000n * BigInt(samples) + BigInt(found.rate)) / (2n * BigInt(found.rate));
    return `${rounded / 1000n}.${String(rounded % 1000n).padStart(3, "0")}`;
  };
  assert.equal(found.segments.length, 3);
  assert.equal(found.segments[2].open, true);
  const rows = await page.locator("#segments tbody tr").evaluateAll((all) =>
    all.map((row) => [...row.cells].slice(1).map((cell) => cell.textContent)));
  assert.deepEqual(rows, found.segments.map(({ start_sample: start, end_sample: end, open: unfinished }, i) =>
    [String(i + 1), ms(start), ms(end), ms(end - start), unfinished ? "open" : ""]));
  const text = await page.locator("#facts-list").innerText();
  for (const expected of [found.sha256, `${found.samples} samples`, `${found.frames} of ${found.frame} samples`]) {
    assert.ok(text.includes(expected), `${expected} in ${text}`);
  }
  await closeQuietly();
});

it("plays the lowest rate that it brings audio for", async () => {
  await open(reports.slow);
  await page.getByRole("button", { name: "Play", exact: true }).click();
  await positionReaches(0.2);
  await page.getByRole("button", { name: "Pause", exact: true }).click();
  await page.keyboard.press("Shift+ArrowRight");
  assert.match(await page.locator("#clock").textContent(), /^0:05\.\d{3} \/ 1:15\.000$/);
  await closeQuietly();
});

it("shows a recording without speech and without audio", async () => {
  await open(reports.silent);
  assert.equal(await page.locator("#segments").innerText(), "No speech.");
  assert.match(await page.locator("#note").innerText(), /below 3000 Hz/);
  assert.ok(await page.getByRole("button", { name: "Play", exact: true }).isDisabled());
  await page.keyboard.press("ArrowRight");
  assert.equal(await position(), 1);
  await closeQuietly();
});

describe("on a phone", () => {
  const phone = (width) => ({ viewport: { width, height: 800 }, deviceScaleFactor: 2, isMobile: true, hasTouch: true });

  it("fits, wide and narrow", async () => {
    for (const width of [320, 390]) {
      await open(reports.hums, phone(width));
      await page.locator("details").evaluateAll((all) => all.forEach((one) => { one.open = true; }));
      assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), width);
      const plots = await page.locator(".u-over").evaluateAll((all) => all.map((over) => over.getBoundingClientRect().width));
      assert.ok(plots.every((one) => one > 0.65 * width && one < width), String(plots));
      await screenshot(`phone-${width}`, { fullPage: true });
      await closeQuietly();
    }
  });

  it("zooms by pinch, moves by swipe, seeks by tap", async () => {
    await open(reports.hums, phone(390));
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
    await closeQuietly();
  });
});

describe("safety", () => {
  it("takes any file name for text", async () => {
    const names = ["</script><script>document.title = \"owned\"</script>.wav", "\"><img src=x onerror=alert(1)>.wav",
      "<!--<script>.wav", "$& $` @data@ &lt; \u2028 \\u003c \u202e.wav"];
    for (const name of names) {
      const path = join(folder, name);
      mkdirSync(join(path, ".."), { recursive: true });
      copyFileSync(SPEECH, path);
      await open(report(path));
      assert.equal(await page.locator("#facts-list dd").first().textContent(), path);
      assert.equal(await page.locator("img").count(), 0);
      assert.notEqual(await page.title(), "owned");
      await closeQuietly();
    }
    const latin1 = Buffer.concat([Buffer.from(join(folder, "caf")), Buffer.from([0xe9]), Buffer.from(".wav")]);
    copyFileSync(SPEECH, latin1);
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
    writeFileSync(file, readFileSync(reports.speech, "utf8").replace("</main>", `</main>${intruder}`));
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
