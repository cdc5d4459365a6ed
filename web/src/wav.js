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
    bytes?.[Symbol.toStringTag] === "ArrayBuffer" ? new DataView(bytes) : null;
  if (view === null) {
    throw new TypeError("readWav takes a file's bytes: a Uint8Array or an ArrayBuffer");
  }
  const text = (at) => at + 4 > view.byteLength ? "" :
    String.fromCharCode(...[0, 1, 2, 3].map((i) => view.getUint8(at + i)));
  if (!["RIFF", "RF64"].includes(text(0)) || text(8) !== "WAVE") {
    throw new RangeError("this is no WAV file; a browser's decodeAudioData, or ffmpeg -i IN OUT.wav, reads others");
  }
  const isWhole = view.getUint32(4, true) === view.byteLength - 8;
  let format = null;
  let long = 0; // the size of samples for which 32 bits are too few
  for (let at = 12; at + 8 <= view.byteLength;) {
    const [name, stated] = [text(at), view.getUint32(at + 4, true)];
    const begin = at + 8;
    const rest = view.byteLength - begin;
    const size = Math.min(stated, rest);
    if (name === "ds64" && size >= 16) {
      long = Number(view.getBigUint64(begin + 8, true));
    }
    if (name === "fmt " && size >= 16) {
      const code = view.getUint16(begin, true);
      format = {
        code: code === EXTENSIBLE && size >= 26 ? view.getUint16(begin + 24, true) : code,
        channels: view.getUint16(begin + 2, true),
        sampleRate: view.getUint32(begin + 4, true),
        block: view.getUint16(begin + 12, true),
        bits: view.getUint16(begin + 14, true),
      };
    }
    if (name === "data") {
      if (format === null) {
        break;
      }
      // Recorders that stop short leave 0 or 2^32 - 1.
      const samples = stated === 0 && !isWhole ? rest : Math.min(stated === 2 ** 32 - 1 && long > 0 ? long : stated, rest);
      return { sampleRate: format.sampleRate, channelData: channelsOf(view, begin, samples, format) };
    }
    at = begin + stated + stated % 2;
  }
  throw new RangeError("this WAV file holds no samples");
}

function channelsOf(view, begin, size, { code, channels, block, bits }) {
  const read = FORMATS[`${code} ${bits}`];
  if (read === undefined || channels === 0 || block !== channels * bits / 8) {
    throw new RangeError(`this WAV file is of a kind that is not read (format ${code}, ${bits} bits, ${channels} channels, ${block} bytes for each sample); ` +
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
