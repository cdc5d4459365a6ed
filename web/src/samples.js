// The forms in which samples come: an array, an array for each channel, an AudioBuffer, a decoded file.

/** What a value is, for a message. */
export function nameOf(value) {
  if (value === null || typeof value !== "object") {
    return ["string", "function"].includes(typeof value) ? `a ${typeof value}` : String(value);
  }
  return value[Symbol.toStringTag] ?? value.constructor?.name ?? "an object";
}

// By their tags, since arrays of another window or of a test's sandbox have constructors of their own.
const isSamples = (x) => ArrayBuffer.isView(x) && ["Float32Array", "Int16Array"].includes(x[Symbol.toStringTag]);
export const isAudioBuffer = (x) => typeof x?.getChannelData === "function";
const isDecoded = (x) => Array.isArray(x?.channelData) && typeof x.sampleRate === "number";

function wrong(value) {
  const bytes = ["Uint8Array", "Buffer", "ArrayBuffer", "DataView"].includes(nameOf(value)) ?
    "; bytes of 16-bit samples become new Int16Array(buffer, byteOffset, byteLength / 2)" : "";
  return new TypeError("samples must be a Float32Array or an Int16Array, an array of one for each channel, an " +
    `AudioBuffer or { sampleRate, channelData }, not ${nameOf(value)}${bytes}`);
}

function checked(array) {
  if (!isSamples(array)) {
    throw wrong(array);
  }
  if (array.length === 0) {
    try {
      void new Uint8Array(array.buffer);
    } catch {
      throw new TypeError("the samples' buffer is detached: it was transferred away before push");
    }
  }
  return array;
}

/** A recording's channels, in the form that push takes, its rate and its number of channels, where it has them. */
export function recordingOf(samples) {
  if (isAudioBuffer(samples)) {
    const channelData = Array.from({ length: samples.numberOfChannels }, (_, c) => samples.getChannelData(c));
    return { samples: channelData, sampleRate: samples.sampleRate, channels: channelData.length };
  }
  if (isDecoded(samples)) {
    return { samples: samples.channelData, sampleRate: samples.sampleRate, channels: samples.channelData.length };
  }
  if (!Array.isArray(samples)) {
    return { samples };
  }
  if (samples.length === 0) {
    throw new RangeError("the samples have no channels: hand over an array for each");
  }
  samples.forEach(checked);
  return { samples, channels: samples.length };
}

/**
 * Samples as the module takes them.
 *
 * Gives their number per channel, their shape, and read(into, at, n), which copies n samples of each channel from
 * position `at` on to the arrays `into`.
 */
export function samplesOf(given, rate, channels) {
  const { samples, sampleRate = rate, channels: found = channels } = recordingOf(given);
  if (sampleRate !== rate) {
    throw new RangeError(`the samples have a rate of ${sampleRate} Hz, but this Vad was made for ${rate} Hz`);
  }
  if (found !== channels) {
    throw new RangeError(`the samples have ${found} channels, but this Vad was made for ${channels}`);
  }
  if (Array.isArray(samples)) {
    const arrays = samples.map(checked);
    const [{ length }] = arrays;
    if (arrays.some((one) => one.length !== length || one.BYTES_PER_ELEMENT !== arrays[0].BYTES_PER_ELEMENT)) {
      throw new RangeError("the channels' arrays must be of one type and equally long");
    }
    return {
      length,
      shape: { isFloat: arrays[0].BYTES_PER_ELEMENT === 4, isPlanar: true },
      read: (into, at, n) => arrays.forEach((one, c) => into[c].set(one.subarray(at, at + n))),
    };
  }
  const array = checked(samples);
  if (array.length % channels !== 0) {
    throw new RangeError(`${array.length} samples are no pairs of left and right; hand over both of each pair`);
  }
  return {
    length: array.length / channels,
    shape: { isFloat: array.BYTES_PER_ELEMENT === 4, isPlanar: false },
    read(into, at, n) {
      if (channels === 1) {
        into[0].set(array.subarray(at, at + n));
        return;
      }
      for (let i = 0; i < n; ++i) {
        into[0][i] = array[2 * (at + i)];
        into[1][i] = array[2 * (at + i) + 1];
      }
    },
  };
}

/** Room for n samples per channel of a shape. write(from, count) adds to them, but drops the first `skip`. */
export function takeApart({ isFloat, isPlanar }, channels, n, skip) {
  const Type = isFloat ? Float32Array : Int16Array;
  const planar = isPlanar || channels === 1;
  const arrays = planar ? Array.from({ length: channels }, () => new Type(n)) : [new Type(2 * n)];
  let filled = 0;
  return {
    samples: isPlanar ? arrays : arrays[0],
    write(from, count) {
      const dropped = Math.min(skip, count);
      skip -= dropped;
      if (planar) {
        arrays.forEach((one, c) => one.set(from[c].subarray(dropped, count), filled));
      } else {
        for (let i = dropped; i < count; ++i) {
          arrays[0][2 * (filled + i - dropped)] = from[0][i];
          arrays[0][2 * (filled + i - dropped) + 1] = from[1][i];
        }
      }
      filled += count - dropped;
    },
  };
}
