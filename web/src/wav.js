// Reads WAV files: PCM of 8 to 32 bits and floating point, in any number of channels.

const PCM = 1;
const FLOAT = 3;
const EXTENSIBLE = 0xfffe;

/** Whole samples are brought to -1..1; 16-bit ones stay what they are. */
const FORMATS = {
  [`${PCM} 8`]: (view, at) => (view.getUint8(at) - 128) / 2 ** 7,
  [`${PCM} 16`]: (view, at) => view.getInt16(at, true),
  [`${PCM} 24`]: (view, at) => (view.getUint16(at, true) + view.getInt8(at + 2) * 2 ** 16) / 2 ** 23,
  [`${PCM} 32`]: (view, at) => view.getInt32(at, true) / 2 ** 31,
  [`${FLOAT} 32`]: (view, at) => view.getFloat32(at, true),
  [`${FLOAT} 64`]: (view, at) => view.getFloat64(at, true),
};

export function readWav(bytes) {
  const view = ArrayBuffer.isView(bytes) ? new DataView(bytes.buffer, bytes.byteOffset, bytes.byteLength) :
    bytes instanceof ArrayBuffer ? new DataView(bytes) : null;
  if (view === null) {
    throw new TypeError("readWav takes a file's bytes: a Uint8Array or an ArrayBuffer");
  }
  const text = (at) => at + 4 > view.byteLength ? "" :
    String.fromCharCode(...[0, 1, 2, 3].map((i) => view.getUint8(at + i)));
  if (!["RIFF", "RF64"].includes(text(0)) || text(8) !== "WAVE") {
    throw new RangeError("this is no WAV file; a browser's decodeAudioData, or ffmpeg -i IN OUT.wav, reads others");
  }
  let format = null;
  for (let at = 12; at + 8 <= view.byteLength;) {
    const [name, stated] = [text(at), view.getUint32(at + 4, true)];
    const begin = at + 8;
    const size = Math.min(stated, view.byteLength - begin); // recorders that stop short leave 0 or 2^32 - 1
    if (name === "fmt " && size >= 16) {
      const code = view.getUint16(begin, true);
      format = {
        code: code === EXTENSIBLE && size >= 26 ? view.getUint16(begin + 24, true) : code,
        channels: view.getUint16(begin + 2, true),
        sampleRate: view.getUint32(begin + 4, true),
        bits: view.getUint16(begin + 14, true),
      };
    }
    if (name === "data") {
      if (format === null) {
        break;
      }
      return { sampleRate: format.sampleRate, channelData: channelsOf(view, begin, stated === 0 ? view.byteLength - begin : size, format) };
    }
    at = begin + stated + stated % 2;
  }
  throw new RangeError("this WAV file holds no samples");
}

function channelsOf(view, begin, size, { code, channels, bits }) {
  const read = FORMATS[`${code} ${bits}`];
  if (read === undefined || channels === 0) {
    throw new RangeError(`this WAV file is of a kind that is not read (format ${code}, ${bits} bits, ${channels} channels); ` +
      "ffmpeg -i IN -c:a pcm_s16le OUT.wav makes it one that is");
  }
  const bytes = bits / 8;
  const length = Math.floor(size / (bytes * channels));
  const Type = bits === 16 ? Int16Array : Float32Array;
  return Array.from({ length: channels }, (_, c) => {
    const samples = new Type(length);
    for (let i = 0; i < length; ++i) {
      samples[i] = read(view, begin + (i * channels + c) * bytes);
    }
    return samples;
  });
}
