// Times as text. Samples are rounded only here: to nearest, halves up.

/** Minutes and hours are written out only where the recording has them. */
const clockParts = duration >= 3600 ? 3 : duration >= 60 ? 2 : 1;

function clock(units, perSecond, parts) {
  const digits = Math.round(Math.log10(perSecond));
  const seconds = Math.floor(units / perSecond);
  const fraction = digits > 0 ? "." + String(units % perSecond).padStart(digits, "0") : "";
  const two = (n) => String(n).padStart(2, "0");
  if (parts === 1) {
    return seconds + fraction;
  }
  if (parts === 2) {
    return `${Math.floor(seconds / 60)}:${two(seconds % 60)}${fraction}`;
  }
  return `${Math.floor(seconds / 3600)}:${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}${fraction}`;
}

/** A position in samples, in milliseconds' resolution. */
function sampleTime(samples, parts = clockParts) {
  return clock(Math.floor(samples * 1000 / rate + 0.5), 1000, parts);
}

function secondsTime(seconds) {
  return clock(Math.max(0, Math.floor(seconds * 1000 + 0.5)), 1000, clockParts);
}

/** Labels of an axis whose ticks are `step` seconds apart. */
function tickTime(seconds, step) {
  const perSecond = 10 ** Math.min(6, Math.max(0, Math.ceil(-Math.log10(step) - 1e-9)));
  return clock(Math.round(Math.max(0, seconds) * perSecond), perSecond, clockParts);
}

const timeUnit = ["s", "min:s", "h:min:s"][clockParts - 1];

function inSamples(samples) {
  const ms = Math.round(samples * 10000 / rate) / 10;
  return `${samples} samples (${ms} ms)`;
}
