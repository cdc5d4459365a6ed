// Colours come from the style, so that one place knows light and dark.

const darkScheme = matchMedia("(prefers-color-scheme: dark)");

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();
}

// From silence to full level. Lightness goes one way only, so that the map can be read without its
// hues; it begins at the paper's own colour.
const MAPS = {
  light: [[255, 255, 255], [219, 231, 245], [143, 190, 227], [65, 132, 189], [61, 70, 150], [60, 15, 92], [22, 3, 28]],
  dark: [[17, 22, 29], [30, 27, 84], [90, 30, 126], [168, 50, 109], [226, 92, 66], [249, 168, 46], [252, 249, 190]],
};

/** The map at 0..1, as [red, green, blue]. */
function mapped(value) {
  const stops = darkScheme.matches ? MAPS.dark : MAPS.light;
  const at = Math.min(Math.max(value, 0), 1) * (stops.length - 1);
  const i = Math.min(Math.floor(at), stops.length - 2);
  return stops[i].map((low, k) => Math.round(low + (at - i) * (stops[i + 1][k] - low)));
}

/** A pixel for each of the 256 values of a spectrogram's cell. */
function pixelTable(floor, ceiling, step, bottom) {
  const table = new Uint8ClampedArray(4 * 256);
  for (let value = 0; value < 256; value++) {
    const decibels = floor + step * value;
    table.set([...mapped((decibels - bottom) / (ceiling - bottom)), 255], 4 * value);
  }
  return new Uint32Array(table.buffer);
}
