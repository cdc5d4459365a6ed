// Detectors on live sound: a node for audio graphs, and the microphone.
import workletText from "korvane-worklet";
import { SETTINGS } from "./engine.js";
import { loadEngine, Reports, settingsOf } from "./vad.js";

const CALLS = ["onSpeechStart", "onSpeechEnd", "onFrame", "onError"];
const LISTENING = { padStartMs: 300, padEndMs: 100, minGapMs: 500 };
const SOUNDS = ["none", "input", "cleaned"];
const DETECTOR_LATE = 19680; // samples that "detector" counts before it answers speech, and before it answers silence

const added = new WeakMap(); // by context, the promise of its worklet

/** A page that was opened from a file may not load blobs of its own as a worklet. */
const mayLoadBlobs = () => globalThis.origin !== "null";

function ownUrl() {
  return mayLoadBlobs() ? URL.createObjectURL(new Blob([workletText], { type: "text/javascript" })) :
    `data:text/javascript,${encodeURIComponent(workletText)}`;
}

function addWorklet(context, url) {
  if (!added.has(context)) {
    const own = url === undefined ? ownUrl() : null;
    added.set(context, context.audioWorklet.addModule(url ?? own).catch((cause) => {
      added.delete(context);
      throw new Error("the audio worklet does not load; where the page has a content security policy, its script-src " +
        `needs ${mayLoadBlobs() ? "blob:" : "data:"}, or workletUrl the address of a copy of korvane-vad/worklet.js (${cause.message})`, { cause });
    }).finally(() => own && URL.revokeObjectURL(own)));
  }
  return added.get(context);
}

/** Settles when a context is closed: its worklets then answer no more. An offline one has no close() and does answer. */
function closing(context) {
  return new Promise((done) => {
    const look = () => typeof context.close === "function" && context.state === "closed" && done();
    context.addEventListener("statechange", look);
    look();
  });
}

/** Options for the node and its callbacks apart from those of the detector. */
function apart(options, names) {
  const mine = {};
  const rest = { ...options };
  for (const name of names) {
    mine[name] = rest[name];
    delete rest[name];
  }
  for (const name of CALLS) {
    if (mine[name] !== undefined && typeof mine[name] !== "function") {
      throw new TypeError(`${name} must be a function`);
    }
  }
  return [mine, rest];
}

/** What a worklet sends becomes calls of the page's functions. */
class Messages {
  #calls;
  #bringSound;
  #rate;
  #waiting = []; // ends whose sound is on its way
  #pieces = [];

  constructor(calls, bringSound, rate) {
    this.#calls = calls;
    this.#bringSound = bringSound;
    this.#rate = rate;
  }

  take({ told, sound, whole, reset }) {
    if (told) {
      told.forEach(([kind, ...numbers]) => kind === "frame" ? this.#frame(numbers) : this.#event(numbers));
    } else if (sound) {
      this.#pieces.push(sound);
      if (whole) {
        this.#tell("onSpeechEnd", this.#spoken(), this.#waiting.shift());
      }
    } else if (reset) {
      this.#waiting = [];
      this.#pieces = [];
    }
  }

  #tell(name, ...values) {
    try {
      this.#calls[name]?.(...values);
    } catch (error) {
      reportError(error); // what a page throws keeps nothing from its next call
    }
  }

  #frame(numbers) {
    const reports = new Reports(this.#rate);
    reports.onFrame(...numbers);
    this.#tell("onFrame", reports.frames[0]);
  }

  #event(numbers) {
    const reports = new Reports(this.#rate);
    reports.onEvent(...numbers);
    const [event] = reports.events;
    if (event.type === "start") {
      this.#tell("onSpeechStart", event);
    } else if (this.#bringSound) {
      this.#waiting.push(event);
    } else {
      this.#tell("onSpeechEnd", undefined, event);
    }
  }

  /** The pieces put together, interleaved. */
  #spoken() {
    const length = this.#pieces.reduce((sum, channels) => sum + channels.length * channels[0].length, 0);
    const spoken = new Float32Array(length);
    let at = 0;
    for (const channels of this.#pieces) {
      for (let i = 0; i < channels[0].length; ++i) {
        channels.forEach((samples) => { spoken[at++] = samples[i]; });
      }
    }
    this.#pieces = [];
    return spoken;
  }
}

export async function vadNode(context, options = {}) {
  if (typeof context?.audioWorklet?.addModule !== "function") {
    throw new TypeError(typeof context?.createGain === "function" ?
      "this context has no audioWorklet: browsers give it to pages from https and localhost alone" :
      "vadNode's first argument must be an AudioContext or an OfflineAudioContext");
  }
  const [mine, settings] = apart(options, [...CALLS, "workletUrl", "sound"]);
  const sound = mine.sound ?? (mine.onSpeechEnd ? "input" : "none");
  if (!SOUNDS.includes(sound)) {
    throw new RangeError(`sound must be one of "${SOUNDS.join('", "')}", not ${sound}`);
  }
  if (sound !== "none" && settings.maxSpeechMs > 0) {
    throw new RangeError('maxSpeechMs goes with sound: "none" alone: parts are known when the whole speech is over');
  }
  const engine = await loadEngine();
  const stream = settingsOf(engine, { ...settings, sampleRate: context.sampleRate });
  await addWorklet(context, mine.workletUrl);

  const { channels } = stream;
  const ms = (name) => settings[name] ?? 0;
  // How long after its first sample speech may be told.
  const late = ms("onsetMs") + (settings.hangoverMs ?? 40) + ms("minGapMs") + ms("minSpeechMs") + ms("padStartMs") + ms("padEndMs") + 1000;
  const frameLength = stream.settings[SETTINGS.indexOf("frameLength")];
  const node = new AudioWorkletNode(context, `korvane-vad-${VERSION}`, {
    numberOfInputs: 1,
    numberOfOutputs: 1,
    outputChannelCount: [channels],
    channelCount: channels,
    channelCountMode: "explicit",
    processorOptions: {
      bytes: engine.bytes,
      channels,
      settings: stream.settings,
      frames: mine.onFrame !== undefined,
      sound,
      keep: Math.ceil(late / 1000 * context.sampleRate) + 3 * frameLength + (settings.decision === "detector" ? DETECTOR_LATE : 0),
    },
  });

  const messages = new Messages(mine, sound !== "none", context.sampleRate);
  const closed = new Promise((done) => {
    node.port.onmessage = ({ data }) => data.closed ? done() : messages.take(data);
  });
  node.onprocessorerror = () => mine.onError?.(new Error("the audio worklet has failed; make a new node"));
  let end = null;
  return Object.assign(node, {
    delay: stream.delay,
    reset() {
      node.port.postMessage("reset");
    },
    close() {
      end ??= (node.port.postMessage("close"), Promise.race([closed, closing(context)]).then(() => node.disconnect()));
      return end;
    },
  });
}

export async function listen(options = {}) {
  const [mine, rest] = apart(options, ["stream", "audio", "sampleRate", "audioContext"]);
  const devices = globalThis.navigator?.mediaDevices;
  if (mine.stream === undefined && typeof devices?.getUserMedia !== "function") {
    throw new TypeError("there is no microphone here: browsers give it to pages from https and localhost alone");
  }
  const stream = mine.stream ?? await devices.getUserMedia({
    audio: mine.audio ?? { channelCount: 1, echoCancellation: true, noiseSuppression: false, autoGainControl: true },
  });
  // What this function has opened it closes.
  const stopTracks = () => mine.stream ?? stream.getTracks().forEach((track) => track.stop());
  let context = mine.audioContext;
  let node;
  let stopping = null;
  const close = async () => {
    stopTracks();
    await node?.close();
    if (mine.audioContext === undefined && context !== undefined && context.state !== "closed") {
      await context.close();
    }
  };
  try {
    context ??= new AudioContext(mine.sampleRate === undefined ? {} : { sampleRate: mine.sampleRate });
    if (mine.audioContext === undefined && context.sampleRate > 49999) {
      await context.close();
      context = new AudioContext({ sampleRate: 48000 });
    }
    node = await vadNode(context, { ...LISTENING, ...rest });
    const source = context.createMediaStreamSource(stream);
    const silence = new GainNode(context, { gain: 0 }); // a node that leads nowhere may not run
    source.connect(node).connect(silence).connect(context.destination);
    await context.resume();
    let paused = false;
    return {
      node,
      stream,
      audioContext: context,
      get paused() { return paused; },
      pause() {
        source.disconnect();
        paused = true;
      },
      resume() {
        if (paused) {
          source.connect(node);
          paused = false;
        }
      },
      stop() {
        stopping ??= (async () => {
          source.disconnect();
          await node.close();
          silence.disconnect();
          await close();
        })();
        return stopping;
      },
    };
  } catch (error) {
    await close();
    throw error;
  }
}
