// Files of segments, the same that the command line writes for them: `korvane-vad detect -f NAME`.

/** Whole milliseconds or microseconds of a position, the nearest. */
function ticks(sample, rate, scale) {
  const whole = Math.floor(sample / rate);
  const rest = sample - whole * rate;
  return whole * scale + Math.floor((2 * rest * scale + rate) / (2 * rate));
}

function seconds(sample, rate, scale = 1e6) {
  const count = ticks(sample, rate, scale);
  return `${Math.floor(count / scale)}.${String(count % scale).padStart(scale === 1e6 ? 6 : 3, "0")}`;
}

const two = (number) => String(number).padStart(2, "0");

/** hh:mm:ss and milliseconds behind `point`. */
function clock(ms, point) {
  const whole = Math.floor(ms / 1000);
  return `${two(Math.floor(whole / 3600))}:${two(Math.floor(whole / 60) % 60)}:${two(whole % 60)}${point}${String(ms % 1000).padStart(3, "0")}`;
}

/** Of a caption, which must not end where it begins. */
function cue({ startSample, endSample }, rate, point) {
  const start = ticks(startSample, rate, 1000);
  return `${clock(start, point)} --> ${clock(Math.max(ticks(endSample, rate, 1000), start + 1), point)}\nspeech\n`;
}

/** A file's name without what stands behind its last dot. */
export const stemOf = (name) => name.replace(/(.)\.[^.]*$/, "$1");

const columns = (fields) => `${fields.map((field) => field.padStart(12)).join(" ")}\n`;

function text({ segments, rate }) {
  return segments.length === 0 ? "no speech\n" : columns(["start", "end", "duration"]) + segments.map((one) =>
    columns([one.startSample, one.endSample, one.endSample - one.startSample].map((x) => seconds(x, rate, 1000)))).join("");
}

const audacity = ({ segments, rate }) => segments.map(({ startSample, endSample }) =>
  `${seconds(startSample, rate)}\t${seconds(endSample, rate)}\tspeech\n`).join("");

const srt = ({ segments, rate }) => segments.map((one, i) => `${i + 1}\n${cue(one, rate, ",")}`).join("\n");

const vtt = ({ segments, rate }) => `WEBVTT\n${segments.map((one) => `\n${cue(one, rate, ".")}`).join("")}`;

/** For a field between spaces: no two names give the same. */
const betweenSpaces = (name) => Array.from(name, (letter) => letter <= " " || letter === "\x7f" || letter === "%" ?
  `%${letter.charCodeAt(0).toString(16).toUpperCase().padStart(2, "0")}` : letter).join("");

const rttm = ({ segments, rate, name }) => segments.length === 0 ? `;; ${name}: no speech\n` :
  segments.map(({ startSample, endSample }) => `SPEAKER ${betweenSpaces(stemOf(name))} 1 ${seconds(startSample, rate)} ` +
    `${seconds(endSample - startSample, rate)} <NA> <NA> speech <NA> <NA>\n`).join("");

function textgrid({ segments, rate, length }) {
  const parts = []; // segments and what lies between them: a tier has no holes
  let position = 0;
  for (const { startSample, endSample } of segments) {
    if (position < startSample) {
      parts.push([position, startSample, ""]);
    }
    parts.push([startSample, endSample, "speech"]);
    position = endSample;
  }
  if (position < length) {
    parts.push([position, length, ""]);
  }
  const span = (indent, start, end) => `${indent}xmin = ${seconds(start, rate)}\n${indent}xmax = ${seconds(end, rate)}\n`;
  const inner = " ".repeat(8);
  return `File type = "ooTextFile"\nObject class = "TextGrid"\n\n${span("", 0, length)}tiers? <exists>\nsize = 1\nitem []:\n` +
    `    item [1]:\n${inner}class = "IntervalTier"\n${inner}name = "speech"\n${span(inner, 0, length)}` +
    `${inner}intervals: size = ${parts.length}\n${parts.map(([start, end, label], i) =>
      `${inner}intervals [${i + 1}]:\n${span(inner + "    ", start, end)}${inner}    text = "${label}"\n`).join("")}`;
}

/** What can be saved: { name, title, extension, write({ segments, rate, name, length }) }. */
export const FORMATS = [
  { name: "text", title: "Text", extension: ".txt", write: text },
  { name: "audacity", title: "Audacity labels", extension: "-labels.txt", write: audacity },
  { name: "srt", title: "SRT", extension: ".srt", write: srt },
  { name: "vtt", title: "WebVTT", extension: ".vtt", write: vtt },
  { name: "rttm", title: "RTTM", extension: ".rttm", write: rttm },
  { name: "textgrid", title: "TextGrid", extension: ".TextGrid", write: textgrid },
];
