// The demo in headless Chromium, opened from its file without a network: a recording is opened and the microphone
// spoken into, read off what is shown, played and saved. Its files are those of the command line.
//
// KORVANE_WEB_TARBALL, beside which the demo lies, NODE_PATH and CHROMIUM say where things are.
import assert from "node:assert/strict";
import { mkdtempSync, readFileSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { tmpdir } from "node:os";
import { dirname, join } from "node:path";
import { after, describe, it } from "node:test";
import { pathToFileURL } from "node:url";
import { FORMATS } from "../../web/demo/formats.js";

const require = createRequire(import.meta.url);
const { chromium } = require("playwright-core");
const axe = readFileSync(require.resolve("axe-core/axe.min.js"), "utf8");
const SPEECH = "/usr/share/sounds/alsa/Front_Center.wav";
const built = dirname(process.env.KORVANE_WEB_TARBALL);
const { clean, detect, readWav } = await import(pathToFileURL(join(built, "package", "korvane-vad.js")));
const DEMO = pathToFileURL(join(built, "demo.html")).href;

const folder = mkdtempSync(join(tmpdir(), "korvane-demo-"));
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? "/usr/bin/chromium",
  args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--autoplay-policy=no-user-gesture-required",
    "--use-fake-ui-for-media-stream", "--use-fake-device-for-media-stream", `--use-file-for-fake-audio-capture=${SPEECH}`],
});
after(async () => {
  await browser.close();
  rmSync(folder, { recursive: true, force: true });
});

/** Runs `work` with the demo in a fresh page, which must not complain, nor need more room than there is. */
async function inDemo(work, options = {}) {
  const context = await browser.newContext({ offline: true, viewport: { width: 1200, height: 900 }, ...options });
  const page = await context.newPage();
  const complaints = [];
  page.on("pageerror", (error) => complaints.push(String(error)));
  page.on("console", (message) => ["error", "warning"].includes(message.type()) && complaints.push(message.text()));
  await page.goto(DEMO);
  await work(page);
  assert.deepEqual(complaints, []);
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth), "wider than the screen");
  await context.close();
}

/** What stands in the way of people with a screen reader, a keyboard or weak eyes. */
async function barriers(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(" ")}`);
}

async function open(page, name = SPEECH) {
  await page.locator("#file").setInputFiles(name);
  await page.locator("#status", { hasText: /: heard/ }).waitFor();
}

const SETTINGS = { enterScore: 0.5, stayScore: 0.4, minGapMs: 300 };
const segments = await detect(readWav(readFileSync(SPEECH)), SETTINGS);

for (const [name, options] of Object.entries({
  light: { colorScheme: "light" },
  dark: { colorScheme: "dark" },
  phone: { colorScheme: "light", viewport: { width: 360, height: 740 }, hasTouch: true },
})) {
  it(`a recording, ${name}`, () => inDemo(async (page) => {
    assert.deepEqual(await barriers(page), []);
    await open(page);
    const rows = await page.locator("#segments tr").allInnerTexts();
    assert.deepEqual(rows.map((row) => row.match(/[\d.]+/g).map(Number)),
      segments.map(({ start, end }) => [start, end, end - start].map((x) => Number(x.toFixed(2)))));
    assert.deepEqual(await barriers(page), []);
  }, options));
}

it("the picture shows speech where it is", () => inDemo(async (page) => {
  await open(page);
  const greens = await page.evaluate(() => {
    const canvas = document.querySelector("canvas");
    const y = Math.round((canvas.clientHeight - 20) * devicePixelRatio); // in the bar below the score
    const { data } = canvas.getContext("2d").getImageData(0, y, canvas.width, 1);
    return Array.from({ length: canvas.width }, (_, x) => data[4 * x + 3] > 0 && data[4 * x + 1] > data[4 * x] + 30);
  });
  const seconds = 68545 / 48000;
  const wrong = greens.filter((isGreen, x) => {
    const at = (x + 0.5) / greens.length * seconds;
    const distance = Math.min(...segments.flatMap(({ start, end }) => [Math.abs(at - start), Math.abs(at - end)]));
    return distance > 0.005 && isGreen !== segments.some(({ start, end }) => at >= start && at < end) && at > 0.01;
  });
  assert.equal(wrong.length, 0);
}));

it("keys, playing, both sounds, the settings", () => inDemo(async (page) => {
  await open(page);
  const place = async () => Number(await page.locator("#position").inputValue());
  await page.keyboard.press("ArrowRight");
  assert.equal(await place(), 1);
  await page.keyboard.press("b");
  assert.equal(await page.locator("[value=before]").isChecked(), true);
  await page.keyboard.press(" ");
  await page.locator("#play", { hasText: "Stop" }).waitFor();
  await page.locator("#play", { hasText: "Play" }).waitFor(); // by itself, at the end
  assert.ok(await place() > 1.4);
  await page.locator("#gap").fill("1");
  await page.locator("#summary", { hasText: "1 segment," }).waitFor();
  await page.locator("#enter").fill("0.9");
  await page.locator("#segments button").first().click();
  await page.locator("#play", { hasText: "Stop" }).waitFor();
}));

it("what is saved", () => inDemo(async (page) => {
  await open(page);
  const saved = async (title) => {
    const [download] = await Promise.all([page.waitForEvent("download"), page.locator("#save button", { hasText: title }).click()]);
    const path = join(folder, download.suggestedFilename());
    await download.saveAs(path);
    return [download.suggestedFilename(), readFileSync(path)];
  };
  const [name, text] = await saved("Audacity labels");
  assert.equal(name, "Front_Center-labels.txt");
  assert.equal(text.toString(), segments.map(({ start, end }) => `${start.toFixed(6)}\t${end.toFixed(6)}\tspeech\n`).join(""));
  const [wavName, wav] = await saved("Cleaned sound");
  assert.equal(wavName, "Front_Center-cleaned.wav");
  assert.deepEqual(readWav(wav), await clean(readWav(readFileSync(SPEECH))));
}));

it("what is no recording is said, and what was shown stays", () => inDemo(async (page) => {
  await open(page);
  writeFileSync(join(folder, "text.wav"), "no sound");
  await page.locator("#file").setInputFiles(join(folder, "text.wav"));
  await page.locator("#status", { hasText: "finds no sound in that file" }).waitFor();
  assert.equal(await page.locator("#segments tr").count(), segments.length);
}));

it("the microphone: what is heard now, and then the recording", () => inDemo(async (page) => {
  await page.locator("#speak").click();
  await page.locator("#state", { hasText: "Speaking" }).waitFor();
  assert.deepEqual(await barriers(page), []);
  await page.waitForTimeout(2000);
  await page.locator("#speak").click();
  await page.locator("#status", { hasText: "microphone: heard" }).waitFor();
  assert.ok(await page.locator("#segments tr").count() > 0);
  assert.equal(await page.locator("#live").isVisible(), false);
}));

describe("files of segments are the command line's", () => {
  const two = { rate: 16000, name: "a 5% talk.wav", length: 1600000, segments: [{ startSample: 1, endSample: 7 }, { startSample: 59_999 * 16 + 8, endSample: 1600000 }] };
  const none = { rate: 8000, name: "still.wav", length: 8000, segments: [] };
  for (const [name, ofTwo, ofNone] of [
    ["text", "       start          end     duration\n       0.000        0.000        0.000\n      60.000      100.000       40.001\n", "no speech\n"],
    ["audacity", "0.000063\t0.000438\tspeech\n59.999500\t100.000000\tspeech\n", ""],
    ["srt", "1\n00:00:00,000 --> 00:00:00,001\nspeech\n\n2\n00:01:00,000 --> 00:01:40,000\nspeech\n", ""],
    ["vtt", "WEBVTT\n\n00:00:00.000 --> 00:00:00.001\nspeech\n\n00:01:00.000 --> 00:01:40.000\nspeech\n", "WEBVTT\n"],
    ["rttm", "SPEAKER a%205%25%20talk 1 0.000063 0.000375 <NA> <NA> speech <NA> <NA>\nSPEAKER a%205%25%20talk 1 59.999500 40.000500 <NA> <NA> speech <NA> <NA>\n",
      ";; still.wav: no speech\n"],
  ]) {
    it(name, () => {
      const { write } = FORMATS.find((one) => one.name === name);
      assert.equal(write(two), ofTwo);
      assert.equal(write(none), ofNone);
    });
  }
});
