// What the page does. It shows either what the microphone hears now, or one recording.
import { FORMATS, stemOf } from "./formats.js";
import { openMicrophone } from "./microphone.js";
import { Player } from "./player.js";
import { hear, readRecording, wavOf } from "./recording.js";
import { clockText, peaksOf, scoresOf, Timeline } from "./timeline.js";

const LONGEST = 600; // seconds that the microphone is recorded
const $ = (id) => document.getElementById(id);
const timeline = new Timeline($("canvas"));
const player = new Player();

let recording = null; // { name, sampleRate, channelData, length, duration }
let heard = null; // what hear() told of it
let turn = 0; // counts what is shown: whoever comes late shows nothing
let microphone = null;

function say(text, isWrong = false) {
  $("status").textContent = text;
  $("status").classList.toggle("wrong", isWrong);
}

const settings = () => {
  const enterScore = Number($("enter").value);
  return { enterScore, stayScore: Math.max(enterScore - 0.1, 0), minGapMs: Math.round(1000 * $("gap").value) };
};

function showSettings() {
  $("enter").nextElementSibling.textContent = $("enter").value;
  $("gap").nextElementSibling.textContent = `${$("gap").value} s`;
}

// ---- A recording ----

/** Hears what is in `recording` and shows it. */
async function show() {
  const mine = ++turn;
  say("Listening to it …");
  const begun = performance.now();
  const told = await hear(recording, settings(), () => mine === turn);
  const taken = (performance.now() - begun) / 1000;
  if (told === null) {
    return;
  }
  heard = told;
  const { segments, frames, cleaned } = told;
  const { name, sampleRate, channelData, duration } = recording;
  player.load([recording, { sampleRate, channelData: cleaned }]);
  timeline.showRecording({ before: peaksOf(channelData), after: peaksOf(cleaned), scores: scoresOf(frames, duration), segments, duration });
  $("empty").hidden = true;
  $("legend").hidden = false;
  $("after").hidden = false;
  $("position").max = duration;
  const spoken = segments.reduce((sum, { start, end }) => sum + end - start, 0);
  const count = segments.length === 1 ? "1 segment" : `${segments.length} segments`;
  const summary = segments.length === 0 ? `No speech in ${clockText(duration)}.` :
    `${count}, together ${spoken.toFixed(1)} s of ${duration.toFixed(1)} s (${Math.round(100 * spoken / duration)} %).`;
  $("summary").textContent = summary;
  $("canvas").setAttribute("aria-label", `${name}: wave form before and after cleaning, score and speech. ${summary} The table below lists it.`);
  listSegments();
  showPlace();
  say(`${name}: heard ${clockText(duration)} in ${taken.toFixed(2)} s.`);
}

function listSegments() {
  $("list").hidden = heard.segments.length === 0;
  $("segments").replaceChildren(...heard.segments.map(({ start, end }, i) => {
    const row = document.createElement("tr");
    for (const time of [start, end, end - start]) {
      row.insertCell().textContent = `${time.toFixed(2)} s`;
    }
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = "Play";
    button.setAttribute("aria-label", `Play segment ${i + 1}`);
    button.addEventListener("click", () => play(start, end));
    row.insertCell().append(button);
    return row;
  }));
}

async function openFile(file) {
  if (!file) {
    return;
  }
  await closeMicrophone();
  const mine = ++turn;
  say(`Reading ${file.name} …`);
  try {
    const read = await readRecording(await file.arrayBuffer());
    if (mine === turn) {
      await take(file.name, read);
    }
  } catch (error) {
    say(error.message, true);
  }
}

async function take(name, { sampleRate, channelData }) {
  const [{ length }] = channelData;
  if (length === 0) {
    throw new Error("There are no samples in that recording.");
  }
  player.stop();
  recording = { name, sampleRate, channelData, length, duration: length / sampleRate };
  await show();
}

// ---- Playing ----

function showPlace() {
  const { position, duration, plays } = player;
  timeline.head = position;
  $("position").value = position;
  $("position").setAttribute("aria-valuetext", `${position.toFixed(1)} seconds`);
  $("clock").textContent = `${clockText(position)} / ${clockText(duration)}`;
  $("play").textContent = plays ? "Stop" : "Play";
  heard.segments.forEach(({ start, end }, i) => {
    $("segments").rows[i].classList.toggle("current", plays && position >= start && position < end);
  });
  if (plays) {
    requestAnimationFrame(showPlace);
  }
}

async function play(from, to) {
  await player.play(from, to);
  showPlace();
}

function stop() {
  player.stop();
  showPlace();
}

async function seek(seconds) {
  await player.seek(Math.min(Math.max(seconds, 0), player.duration));
  if (!player.plays) {
    showPlace();
  }
}

const chosenSound = () => document.querySelector('[name="sound"]:checked').value;

// ---- The microphone ----

const gauge = (id, share, value, text) => {
  $(id).firstElementChild.style.width = `${100 * Math.min(Math.max(share, 0), 1)}%`;
  $(id).setAttribute("aria-valuenow", value);
  $(`${id}-text`).textContent = text;
};

function showNow({ levelDb, score, speech }) {
  $("state").textContent = speech ? "Speaking" : "Quiet";
  $("state").classList.toggle("speaks", speech);
  gauge("level", (levelDb + 80) / 80, Math.max(levelDb, -80).toFixed(0), levelDb > -100 ? `${levelDb.toFixed(0)} dB` : "silence");
  gauge("score", score, score.toFixed(2), score.toFixed(2));
}

async function speak() {
  ++turn;
  player.stop();
  say("Waiting for the microphone …");
  $("speak").disabled = true;
  let last = null;
  try {
    microphone = await openMicrophone({
      onFrame(frame) {
        timeline.addFrame(frame);
        last = frame;
      },
      onError: (error) => say(error.message, true),
    }, settings());
  } catch (error) {
    say(error.name === "NotAllowedError" ? "The browser was not allowed to use the microphone." :
      error.name === "NotFoundError" ? "There is no microphone." : error.message, true);
    return;
  } finally {
    $("speak").disabled = false;
  }
  say("Speak. Press Stop to see and hear it whole.");
  $("speak").setAttribute("aria-pressed", "true");
  $("speak").lastElementChild.textContent = "Stop";
  $("after").hidden = true;
  $("empty").hidden = true;
  $("legend").hidden = true;
  $("live").hidden = false;
  $("canvas").setAttribute("aria-label", "The level and the score of the last 15 seconds");
  timeline.showLive();
  const look = () => {
    if (microphone === null) {
      return;
    }
    if (last !== null) {
      showNow(last);
      timeline.draw();
    }
    if (last?.start >= LONGEST) {
      finish();
      return;
    }
    requestAnimationFrame(look);
  };
  look();
}

/** Lets go of the microphone: gives what was recorded. */
async function closeMicrophone() {
  const open = microphone;
  if (open === null) {
    return null;
  }
  microphone = null;
  $("live").hidden = true;
  $("speak").setAttribute("aria-pressed", "false");
  $("speak").lastElementChild.textContent = "Speak";
  return open.stop();
}

async function finish() {
  const made = await closeMicrophone();
  if (made === null) {
    say("The microphone gave no sound.", true);
    return;
  }
  await take("microphone", made);
}

// ---- Buttons, keys, files ----

function save(name, parts, type) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(new Blob(parts, { type }));
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 1000);
}

function addSaving(title, work) {
  const button = document.createElement("button");
  button.type = "button";
  button.textContent = title;
  button.addEventListener("click", work);
  $("save").append(button);
}

for (const { name, title, extension, write } of FORMATS) {
  addSaving(title, () => save(stemOf(recording.name) + extension,
    [write({ segments: heard.segments, rate: recording.sampleRate, name: recording.name, length: recording.length })], `text/plain;format=${name}`));
}
addSaving("Cleaned sound (WAV)", () => save(`${stemOf(recording.name)}-cleaned.wav`,
  [wavOf({ sampleRate: recording.sampleRate, channelData: heard.cleaned })], "audio/wav"));

$("speak").addEventListener("click", () => microphone === null ? speak() : finish());
$("open").addEventListener("click", () => $("file").click());
$("file").addEventListener("change", ({ target }) => {
  openFile(target.files[0]);
  target.value = "";
});
$("play").addEventListener("click", () => player.plays ? stop() : play());
$("position").addEventListener("input", ({ target }) => seek(Number(target.value)));
for (const radio of document.querySelectorAll('[name="sound"]')) {
  radio.addEventListener("change", () => player.hear(chosenSound() === "before" ? 0 : 1));
}
for (const id of ["enter", "gap"]) {
  $(id).addEventListener("input", showSettings);
  $(id).addEventListener("change", () => recording && microphone === null && show());
}
timeline.onSeek = seek;
player.onEnd = showPlace;

const KEYS = {
  " ": () => player.plays ? stop() : play(),
  b: () => document.querySelector('[name="sound"]:not(:checked)').click(),
  ArrowLeft: () => seek(player.position - 1),
  ArrowRight: () => seek(player.position + 1),
};
document.addEventListener("keydown", (event) => {
  const { key, target } = event;
  if (event.ctrlKey || event.metaKey || event.altKey) {
    return;
  }
  if (key === "o") {
    $("file").click();
  } else if (key in KEYS && !$("after").hidden && !(key !== "b" && target.matches("button, input"))) {
    event.preventDefault();
    KEYS[key]();
  }
});

for (const type of ["dragenter", "dragover", "dragleave", "drop"]) {
  document.addEventListener(type, (event) => {
    event.preventDefault();
    document.body.classList.toggle("dropping", type === "dragenter" || type === "dragover");
  });
}
document.addEventListener("drop", ({ dataTransfer }) => openFile(dataTransfer.files[0]));
showSettings();
