// The picture: a recording before and after with its speech and score, or the last seconds of what is heard now.

const BINS = 2000; // of a recording's pictures: more than most screens have pixels
const AXIS = 22; // height of the axis, in CSS pixels
const SCORE = 0.22; // share of the height that the score takes
const QUIETEST = -80; // dB
const STEPS = [0.1, 0.2, 0.5, 1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 1800, 3600];
const LIVE_SECONDS = 15;

export function clockText(seconds) {
  const whole = Math.floor(seconds + 1e-6);
  return `${Math.floor(whole / 60)}:${String(whole % 60).padStart(2, "0")}`;
}

/** The loudest sample in each of the bins, 0..1, over all channels. */
export function peaksOf(channelData) {
  const peaks = new Float32Array(BINS);
  const { length } = channelData[0];
  for (const samples of channelData) {
    const scale = samples instanceof Int16Array ? 1 / 32768 : 1;
    for (let i = 0; i < length; ++i) {
      const bin = Math.floor(i / length * BINS);
      peaks[bin] = Math.max(peaks[bin], Math.abs(samples[i]) * scale);
    }
  }
  return peaks;
}

/** The highest score in each of the bins. */
export function scoresOf(frames, duration) {
  const scores = new Float32Array(BINS);
  for (const { start, score } of frames) {
    const bin = Math.min(BINS - 1, Math.floor(start / duration * BINS));
    scores[bin] = Math.max(scores[bin], score);
  }
  // A bin may be shorter than a frame.
  const first = frames.length < BINS ? 1 : BINS;
  for (let bin = first; bin < BINS; ++bin) {
    scores[bin] ||= scores[bin - 1];
  }
  return scores;
}

export class Timeline {
  #canvas;
  #recording = null;
  #live = null;
  #head = null;

  /** Called with a time in seconds where somebody points at a recording. */
  onSeek = () => {};

  constructor(canvas) {
    this.#canvas = canvas;
    new ResizeObserver(() => this.draw()).observe(canvas);
    matchMedia("(prefers-color-scheme: dark)").addEventListener("change", () => this.draw());
    const seek = ({ clientX }) => {
      const { left, width } = canvas.getBoundingClientRect();
      if (this.#recording !== null) {
        this.onSeek(Math.min(Math.max((clientX - left) / width, 0), 1) * this.#recording.duration);
      }
    };
    canvas.addEventListener("pointerdown", (event) => {
      canvas.setPointerCapture(event.pointerId);
      seek(event);
    });
    canvas.addEventListener("pointermove", (event) => event.buttons === 1 && seek(event));
  }

  /** { before, after, scores, segments, duration }: see peaksOf and scoresOf. */
  showRecording(recording) {
    this.#recording = recording;
    this.#live = null;
    this.#head = 0;
    this.draw();
  }

  /** Begins a picture that addFrame fills. */
  showLive() {
    this.#recording = null;
    this.#live = [];
    this.#head = null;
    this.draw();
  }

  addFrame(frame) {
    this.#live?.push(frame);
    if (this.#live?.[0].start < frame.start - LIVE_SECONDS) {
      this.#live.shift();
    }
  }

  /** Of the place that is played, in seconds. */
  set head(seconds) {
    this.#head = seconds;
    this.draw();
  }

  draw() {
    const canvas = this.#canvas;
    const { clientWidth: width, clientHeight: height } = canvas;
    const scale = devicePixelRatio;
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(height * scale);
    const style = getComputedStyle(canvas);
    const colour = (name) => style.getPropertyValue(`--${name}`);
    const brush = canvas.getContext("2d");
    brush.scale(scale, scale);
    brush.font = `12px ${style.fontFamily}`;
    const scoreTop = (height - AXIS) * (1 - SCORE);
    const area = { brush, colour, width, scoreTop, bottom: height - AXIS };
    if (this.#recording !== null) {
      this.#drawRecording(area);
    } else if (this.#live?.length > 0) {
      this.#drawLive(area);
    }
  }

  #drawRecording({ brush, colour, width, scoreTop, bottom }) {
    const { before, after, scores, segments, duration } = this.#recording;
    const x = (seconds) => seconds / duration * width;
    brush.fillStyle = colour("shade");
    for (const { start, end } of segments) {
      brush.fillRect(x(start), 0, Math.max(x(end) - x(start), 1), bottom);
    }
    const loudest = Math.max(0.01, before.reduce((most, peak) => Math.max(most, peak), 0));
    const middle = scoreTop / 2;
    for (const [peaks, name] of [[before, "before"], [after, "after"]]) {
      brush.fillStyle = colour(name);
      mirrored(brush, peaks, width, middle, (peak) => peak / loudest * (middle - 8));
    }
    curve(brush, colour, Array.from(scores, (score, i) => [(i + 0.5) / BINS * width, score]), scoreTop, bottom);
    brush.fillStyle = colour("speech");
    for (const { start, end } of segments) {
      brush.fillRect(x(start), bottom, Math.max(x(end) - x(start), 1), 4);
    }
    axis(brush, colour, 0, duration, width, bottom);
    brush.fillStyle = colour("head");
    brush.fillRect(Math.min(Math.max(x(this.#head) - 1, 0), width - 2), 0, 2, bottom + 4);
  }

  #drawLive({ brush, colour, width, scoreTop, bottom }) {
    const frames = this.#live;
    const end = Math.max(frames.at(-1).start, LIVE_SECONDS);
    const x = (seconds) => (seconds - end + LIVE_SECONDS) / LIVE_SECONDS * width;
    const middle = scoreTop / 2;
    const step = Math.max(width / LIVE_SECONDS / 100, 1);
    for (const { start, levelDb, speech } of frames) {
      const tall = Math.max(1, Math.max(levelDb - QUIETEST, 0) / -QUIETEST * (middle - 8));
      brush.fillStyle = colour(speech ? "after" : "before");
      brush.fillRect(x(start), middle - tall, step, 2 * tall);
      if (speech) {
        brush.fillStyle = colour("speech");
        brush.fillRect(x(start), bottom, step, 4);
      }
    }
    curve(brush, colour, frames.map(({ start, score }) => [x(start), score]), scoreTop, bottom);
    axis(brush, colour, end - LIVE_SECONDS, end, width, bottom);
  }
}

/** Fills what lies between the values above and below a middle line. */
function mirrored(brush, values, width, middle, tall) {
  brush.beginPath();
  const point = (i, sign) => brush.lineTo((i + 0.5) / values.length * width, middle - sign * Math.max(tall(values[i]), 0.5));
  for (let i = 0; i < values.length; ++i) {
    point(i, 1);
  }
  for (let i = values.length - 1; i >= 0; --i) {
    point(i, -1);
  }
  brush.fill();
}

/** The score over time, from 0 at the bottom to 1 at the top. */
function curve(brush, colour, points, top, bottom) {
  brush.strokeStyle = colour("line");
  brush.lineWidth = 1;
  brush.beginPath();
  brush.moveTo(0, top + 0.5);
  brush.lineTo(brush.canvas.width, top + 0.5);
  brush.stroke();
  brush.strokeStyle = colour("speech");
  brush.lineWidth = 1.5;
  brush.lineJoin = "round";
  brush.beginPath();
  points.forEach(([x, score]) => brush.lineTo(x, bottom - 2 - score * (bottom - top - 6)));
  brush.stroke();
}

function axis(brush, colour, begin, end, width, bottom) {
  const step = STEPS.find((one) => one / (end - begin) * width >= 70) ?? 7200;
  brush.fillStyle = colour("soft");
  brush.textBaseline = "middle";
  for (let i = Math.max(1, Math.ceil(begin / step)); i * step < end; ++i) {
    const x = (i * step - begin) / (end - begin) * width;
    const text = step < 1 ? `${(i * step).toFixed(1)}` : clockText(i * step);
    const half = brush.measureText(text).width / 2;
    if (x > half && x + half < width) {
      brush.fillText(text, x - half, bottom + 14);
    }
  }
}
