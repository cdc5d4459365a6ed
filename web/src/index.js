export { listen, vadNode } from "./live.js";
export { clean, detect, events, vadStream } from "./recordings.js";
export { Vad } from "./vad.js";
export { readWav } from "./wav.js";
