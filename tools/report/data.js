// The data that comes with the page, unpacked.

const facts = JSON.parse(document.getElementById("facts").textContent);
const rate = facts.source.rate;
const duration = facts.length / rate;

/** The bytes of a block of base64 text, or null where there is no such block. The text is let go. */
function takeBytes(id) {
  const block = document.getElementById(id);
  if (block === null) {
    return null;
  }
  const text = block.textContent;
  block.remove();
  if (Uint8Array.fromBase64) {
    return Uint8Array.fromBase64(text);
  }
  const bytes = new Uint8Array(text.length / 4 * 3 - (text.endsWith("==") ? 2 : text.endsWith("=") ? 1 : 0));
  const PIECE = 1 << 16; // a multiple of four digits
  let at = 0;
  for (let i = 0; i < text.length; i += PIECE) {
    const piece = atob(text.slice(i, i + PIECE));
    for (let k = 0; k < piece.length; k++) {
      bytes[at++] = piece.charCodeAt(k);
    }
  }
  return bytes;
}

async function takePacked(id) {
  const stream = new Blob([takeBytes(id)]).stream().pipeThrough(new DecompressionStream("deflate"));
  return new Response(stream).arrayBuffer();
}

/** 16-bit little-endian numbers, whatever the machine's own order. */
function int16Array(buffer) {
  if (new Uint8Array(Uint16Array.of(1).buffer)[0] === 1) {
    return new Int16Array(buffer);
  }
  const view = new DataView(buffer);
  return Int16Array.from({ length: buffer.byteLength / 2 }, (_, i) => view.getInt16(2 * i, true));
}

/**
 * An envelope at every power of two of its resolution, so that drawing costs the same however much
 * is in view. `unit` is the seconds that one value stands for, `start` the time of the first.
 */
class Envelope {
  constructor(buffer, bucket, unit, start) {
    const values = int16Array(buffer);
    const count = values.length / 2;
    this.start = start;
    this.levels = [{ step: bucket * unit, low: values.subarray(0, count), high: values.subarray(count) }];
    for (let finer = this.levels[0]; finer.low.length > 512; finer = this.levels.at(-1)) {
      const n = Math.ceil(finer.low.length / 2);
      const low = new Int16Array(n);
      const high = new Int16Array(n);
      for (let i = 0; i < n; i++) {
        const k = Math.min(2 * i + 1, finer.low.length - 1);
        low[i] = Math.min(finer.low[2 * i], finer.low[k]);
        high[i] = Math.max(finer.high[2 * i], finer.high[k]);
      }
      this.levels.push({ step: 2 * finer.step, low, high });
    }
  }

  /** The coarsest level with at least one bucket in `step` seconds, or the finest there is. */
  level(step) {
    return this.levels.findLast((level) => level.step <= step) ?? this.levels[0];
  }

  /** [times, highs, lows] of what lies in from..to and one more at either side, for `pixels`. */
  slice(from, to, pixels, scale) {
    const { step, low, high } = this.level((to - from) / pixels);
    const first = Math.max(0, Math.floor((from - this.start) / step) - 1);
    const end = Math.min(low.length, Math.ceil((to - this.start) / step) + 1);
    const n = Math.max(0, end - first);
    const result = [new Float64Array(n), new Float64Array(n), new Float64Array(n)];
    for (let i = 0; i < n; i++) {
      result[0][i] = this.start + (first + i + 0.5) * step;
      result[1][i] = high[first + i] / scale;
      result[2][i] = low[first + i] / scale;
    }
    return result;
  }

  /** The value at a time: the highest of its bucket; undefined outside. */
  at(time) {
    const { step, high } = this.levels[0];
    return high[Math.floor((time - this.start) / step)];
  }

  /** Largest magnitude. */
  peak() {
    const { low, high } = this.levels.at(-1);
    return Math.max(-low.reduce((a, b) => Math.min(a, b), 0), high.reduce((a, b) => Math.max(a, b), 0));
  }
}

/** Spectra, column after column, at every power of two of their resolution in time. */
class Spectrogram {
  constructor(buffer, { rows, columns, hop }) {
    const packed = new Uint8Array(buffer); // row after row
    const cells = new Uint8Array(rows * columns);
    for (let row = 0; row < rows; row++) {
      for (let column = 0; column < columns; column++) {
        cells[column * rows + row] = packed[row * columns + column];
      }
    }
    this.rows = rows;
    this.levels = [{ step: hop / rate, columns, cells }];
    for (let finer = this.levels[0]; finer.columns > 512; finer = this.levels.at(-1)) {
      const n = Math.ceil(finer.columns / 2);
      const coarser = new Uint8Array(n * rows);
      for (let column = 0; column < n; column++) {
        const left = 2 * column * rows;
        const right = Math.min(2 * column + 1, finer.columns - 1) * rows;
        for (let row = 0; row < rows; row++) {
          // Of the two decibel values the mean, the louder one counting more when they are odd.
          coarser[column * rows + row] = (finer.cells[left + row] + finer.cells[right + row] + 1) >> 1;
        }
      }
      this.levels.push({ step: 2 * finer.step, columns: n, cells: coarser });
    }
  }

  level(step) {
    return this.levels.findLast((level) => level.step <= step) ?? this.levels[0];
  }

  /** The highest value anywhere. */
  peak() {
    let peak = 0;
    for (const value of this.levels[0].cells) {
      peak = value > peak ? value : peak;
    }
    return peak;
  }
}
