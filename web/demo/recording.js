// A recording: read from a file, and what is heard in it.
import { readWav, Vad } from "korvane-vad";

const HIGHEST_RATE = 49999; // that the detector takes
const LOWEST_RATE = 8000; // that every browser plays
const OTHER_RATE = 48000; // to which the browser brings what lies beyond
const PIECE = 1 << 19; // samples between two looks at the page's clicks

/** Reads a file's bytes: { sampleRate, channelData }, one or two channels. */
export async function readRecording(bytes) {
  try {
    const wav = readWav(bytes);
    if (wav.sampleRate >= LOWEST_RATE && wav.sampleRate <= HIGHEST_RATE && wav.channelData.length <= 2) {
      return wav;
    }
  } catch {
    // The browser reads more kinds than WAV.
  }
  let buffer;
  try {
    buffer = await new OfflineAudioContext(1, 1, OTHER_RATE).decodeAudioData(bytes);
  } catch {
    throw new Error("This browser finds no sound in that file. WAV, MP3, FLAC, Ogg and M4A are what most browsers read.");
  }
  const channelData = Array.from({ length: buffer.numberOfChannels }, (_, c) => buffer.getChannelData(c));
  return { sampleRate: OTHER_RATE, channelData: channelData.length <= 2 ? channelData : [mean(channelData)] };
}

function mean(channels) {
  return channels[0].map((_, i) => channels.reduce((sum, one) => sum + one[i], 0) / channels.length);
}

/**
 * Hears a recording: { segments, frames, cleaned }, the cleaned channels in the type of the given ones.
 *
 * `frames` are those that Vad tells. Gives null where isCurrent() became false on the way.
 */
export async function hear({ sampleRate, channelData }, settings, isCurrent) {
  const vad = await Vad.create({ sampleRate, channels: channelData.length, frames: true, cleaned: true, ...settings });
  try {
    const { length } = channelData[0];
    const cleaned = channelData.map((one) => new one.constructor(length));
    const segments = [];
    const frames = [];
    let filled = 0;
    const add = (told) => {
      told.cleaned.forEach((one, c) => cleaned[c].set(one, filled));
      filled += told.cleaned[0].length;
      told.frames.forEach((frame) => frames.push(frame));
      segments.push(...told.events.filter(({ type }) => type === "end"));
    };
    for (let at = 0; at < length; at += PIECE) {
      add(vad.push(channelData.map((one) => one.subarray(at, at + PIECE))));
      await new Promise((done) => { setTimeout(done, 0); });
      if (!isCurrent()) {
        return null;
      }
    }
    add(vad.flush());
    return { segments, frames, cleaned };
  } finally {
    vad.close();
  }
}

/** A WAV file of 16 bits. */
export function wavOf({ sampleRate, channelData }) {
  const channels = channelData.length;
  const bytes = 2 * channels * channelData[0].length;
  const view = new DataView(new ArrayBuffer(44 + bytes));
  const text = (at, letters) => Array.from(letters, (letter, i) => view.setUint8(at + i, letter.charCodeAt(0)));
  text(0, "RIFF");
  view.setUint32(4, 36 + bytes, true);
  text(8, "WAVEfmt ");
  view.setUint32(16, 16, true);
  view.setUint16(20, 1, true);
  view.setUint16(22, channels, true);
  view.setUint32(24, sampleRate, true);
  view.setUint32(28, 2 * channels * sampleRate, true);
  view.setUint16(32, 2 * channels, true);
  view.setUint16(34, 16, true);
  text(36, "data");
  view.setUint32(40, bytes, true);
  channelData.forEach((samples, c) => {
    const scale = samples instanceof Int16Array ? 1 : 32768;
    samples.forEach((x, i) => {
      view.setInt16(44 + 2 * (i * channels + c), Math.min(32767, Math.max(-32768, Math.round(x * scale))), true);
    });
  });
  return view.buffer;
}
