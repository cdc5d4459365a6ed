// The charts, one above the other, all over the same stretch of time.

const LEFT = 66; // room for the labels of every y axis, so that the time axes lie above each other

/** Places of labels on the time axis: 1, 2 or 5 times a power of ten below a minute, then those that
 * clocks have. */
const TIME_STEPS = [];
for (let power = -6; power < 1; power++) {
  TIME_STEPS.push(1 * 10 ** power, 2 * 10 ** power, 5 * 10 ** power);
}
TIME_STEPS.push(10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 14400, 28800, 86400);

function axis(options) {
  return {
    stroke: () => colour("soft"),
    grid: { stroke: () => colour("grid"), width: 1 },
    ticks: { stroke: () => colour("line"), width: 1, size: 4 },
    font: "12px system-ui, 'DejaVu Sans', sans-serif",
    ...options,
  };
}

class Panel {
  /**
   * @param options.title   what the panel shows
   * @param options.hint    how to read it
   * @param options.height  CSS pixels, axis excluded
   * @param options.range   of the y axis
   * @param options.labels  of the y axis: {splits, values}, or none for uPlot's own
   * @param options.unit    of the y axis
   * @param options.series  uPlot's, without the x series
   * @param options.slice   (from, to, pixels) to the data in view; none where the panel paints itself
   * @param options.under   paints below axes and series, options.over above
   */
  constructor(host, view, options) {
    this.options = options;
    this.view = view;
    this.element = document.createElement("section");
    this.element.className = "panel";
    const title = document.createElement("h2");
    title.append(options.title);
    const hint = document.createElement("small");
    hint.textContent = options.hint;
    title.append(hint, ...(options.extra ?? []));
    this.element.append(title);
    host.append(this.element);
    this.plot = new uPlot(this.plotOptions(), this.data(), this.element);
    this.head = document.createElement("div");
    this.head.className = "playhead";
    this.plot.over.append(this.head);
  }

  width() {
    return Math.max(200, this.element.clientWidth);
  }

  plotOptions() {
    const { options, view } = this;
    return {
      width: this.width(),
      height: options.height + 30,
      padding: [6, 26, 0, 0], // half of the last label's width at the right
      legend: { show: false },
      cursor: {
        y: false,
        points: { show: false },
        drag: { x: true, y: false, setScale: false },
        sync: { key: "time", scales: ["x", null] },
        bind: { dblclick: () => () => view.showAll() },
      },
      scales: {
        x: { time: false, range: () => [view.from, view.to] },
        y: { range: () => options.range },
      },
      axes: [
        axis({ size: 24, space: 70, incrs: TIME_STEPS, ...options.xAxis, values: (_, splits, __, ___, step) => splits.map((t) => tickTime(t, step)) }),
        axis({ scale: "y", size: LEFT, space: 24, values: (_, splits) => splits.map(minus), ...options.yAxis }),
      ],
      series: [{}, ...(options.series ?? [{ show: false }])],
      bands: options.slice ? [{ series: [1, 2] }] : [],
      hooks: {
        drawClear: [(plot) => clipped(plot, options.under)],
        draw: [(plot) => clipped(plot, options.over)],
        setSelect: [(plot) => this.selected(plot)],
        setCursor: [(plot) => view.pointAt(plot.cursor.left < 0 ? null : plot.posToVal(plot.cursor.left, "x"))],
      },
    };
  }

  data() {
    const { from, to } = this.view;
    return this.options.slice?.(from, to, this.width() * devicePixelRatio) ?? [[from, to], [null, null]];
  }

  selected(plot) {
    const { left, width } = plot.select;
    if (width < 5) {
      return;
    }
    plot.setSelect({ left: 0, top: 0, width: 0, height: 0 }, false);
    this.view.show(plot.posToVal(left, "x"), plot.posToVal(left + width, "x"));
  }

  refresh() {
    this.plot.setData(this.data());
  }

  resize() {
    this.plot.setSize({ width: this.width(), height: this.options.height + 30 });
    this.refresh();
  }

  moveHead(time) {
    const x = this.plot.valToPos(time, "x");
    const visible = time >= this.view.from && time <= this.view.to;
    this.head.style.display = visible ? "" : "none";
    this.head.style.transform = `translateX(${x}px)`;
  }
}

/** Paints inside the plot's area only. */
function clipped(plot, paint) {
  if (!paint) {
    return;
  }
  const { ctx, bbox } = plot;
  ctx.save();
  ctx.beginPath();
  ctx.rect(bbox.left, bbox.top, bbox.width, bbox.height);
  ctx.clip();
  paint(plot, ctx, bbox);
  ctx.restore();
}

/** A bar for each range of time, from one height to another (in parts of the panel, from above). */
function paintRanges(plot, ctx, bbox, ranges, top, bottom) {
  const { min, max } = plot.scales.x;
  for (const [from, to] of ranges) {
    if (to >= min && from <= max) {
      const left = plot.valToPos(from, "x", true);
      const width = Math.max(1, plot.valToPos(to, "x", true) - left);
      ctx.fillRect(left, bbox.top + top * bbox.height, width, (bottom - top) * bbox.height);
    }
  }
}

const segmentTimes = facts.segments.map(([start, end]) => [start / rate, end / rate]);

/** The frames that were answered with speech, as ranges of time. */
const flagTimes = (() => {
  const { frame, delay } = facts.timing;
  const changes = [...facts.flag_changes];
  if (changes.length % 2 === 1) {
    changes.push(facts.frames);
  }
  const time = (index) => Math.min(duration, Math.max(0, (index * frame - delay) / rate));
  const ranges = [];
  for (let i = 0; i < changes.length; i += 2) {
    ranges.push([time(changes[i]), time(changes[i + 1])]);
  }
  return ranges;
})();

function shadeSegments(plot, ctx, bbox) {
  ctx.fillStyle = colour("shade");
  paintRanges(plot, ctx, bbox, segmentTimes, 0, 1);
}

/** Two series, the highest and the lowest, with the space between them filled. */
function bandSeries(name, fill = name) {
  const series = { stroke: () => colour(name), width: 1, points: { show: false } };
  return [{ ...series, fill: () => colour(fill) }, { ...series, stroke: () => colour(fill) }];
}

function waveformPanel(host, view, title, name, envelope, peak) {
  return new Panel(host, view, {
    title,
    hint: "part of full scale; speech segments shaded",
    height: 96,
    range: [-peak, peak],
    series: bandSeries(name),
    slice: (from, to, pixels) => envelope.slice(from, to, pixels, 32768),
    under: shadeSegments,
  });
}

/**
 * What was measured of each frame.
 *
 * @param options.decides  whether speech is decided by it: then the thresholds are drawn
 * @param options.steps    of the envelope in one unit
 */
function measurePanel(host, view, envelope, { title, scale, unit, splits, steps, decides }) {
  const thresholds = decides ? [["enter", facts.enter, "bottom"], ["stay", facts.stay, "top"]] : [];
  return new Panel(host, view, {
    title,
    hint: scale + (decides ? `; speech begins above ${minus(facts.enter)} and lasts above ${minus(facts.stay)}` : ""),
    height: 130,
    range: [splits[0], splits.at(-1)],
    yAxis: { splits: () => splits },
    series: bandSeries("level", "level-band"),
    slice: (from, to, pixels) => envelope.slice(from, to, pixels, steps),
    under: shadeSegments,
    over: (plot, ctx, bbox) => {
      const ratio = devicePixelRatio;
      ctx.font = `600 ${11 * ratio}px system-ui, 'DejaVu Sans', sans-serif`;
      ctx.textAlign = "right";
      ctx.lineWidth = 2 * Math.round(ratio); // even and at a whole place: all of it in its full colour
      for (const [name, value, baseline] of thresholds) {
        const y = Math.round(plot.valToPos(value, "y", true));
        const x = bbox.left + bbox.width - 6 * ratio;
        const text = `${name} ${minus(value)}${unit}`;
        ctx.strokeStyle = ctx.fillStyle = colour(name);
        ctx.setLineDash(name === "enter" ? [] : [6 * ratio, 4 * ratio]);
        ctx.beginPath();
        ctx.moveTo(bbox.left, y);
        ctx.lineTo(bbox.left + bbox.width, y);
        ctx.stroke();
        ctx.setLineDash([]);
        ctx.textBaseline = baseline;
        const textY = y + (baseline === "top" ? 3 : -3) * ratio;
        const box = ctx.measureText(text).width + 6 * ratio;
        ctx.fillStyle = colour("paper");
        ctx.globalAlpha = 0.85; // the curve must not make the letters unreadable
        ctx.fillRect(x + 3 * ratio - box, baseline === "top" ? y + ratio : y - 15 * ratio, box, 14 * ratio);
        ctx.globalAlpha = 1;
        ctx.fillStyle = colour(name);
        ctx.fillText(text, x, textY);
      }
    },
  });
}

function decisionPanel(host, view) {
  return new Panel(host, view, {
    title: "Decision",
    hint: "flag: frames answered with speech, delay taken out; segments: the same after alignment and rules",
    height: 44,
    range: [0, 1],
    xAxis: { grid: { show: false } },
    yAxis: { splits: () => [0.26, 0.74], values: () => ["segments", "flag"], grid: { show: false }, ticks: { show: false } },
    under: (plot, ctx, bbox) => {
      ctx.fillStyle = colour("level");
      paintRanges(plot, ctx, bbox, flagTimes, 0.12, 0.4);
      ctx.fillStyle = colour("speech");
      paintRanges(plot, ctx, bbox, segmentTimes, 0.6, 0.88);
    },
  });
}

/** What both spectrograms share: their range of levels and its picture. */
class LevelScale {
  constructor(spectrograms) {
    const { floor, step } = facts.spectrogram;
    const peak = floor + step * Math.max(...spectrograms.map((spectrogram) => spectrogram.peak()));
    this.top = Math.max(floor + 80, Math.ceil(peak / 10) * 10);
    this.bottom = this.top - 80;
    this.table = [];
    this.keys = [];
    this.colour();
  }

  colour() {
    const { floor, step } = facts.spectrogram;
    this.table = pixelTable(floor, this.top, step, this.bottom);
    for (const key of this.keys) {
      this.paint(key);
    }
  }

  paint(canvas) {
    const context = canvas.getContext("2d");
    for (let x = 0; x < canvas.width; x++) {
      context.fillStyle = `rgb(${mapped(x / (canvas.width - 1)).join(",")})`;
      context.fillRect(x, 0, 1, canvas.height);
    }
  }

  /** A picture of the scale with its ends. */
  key() {
    const element = document.createElement("small");
    element.className = "scale";
    const canvas = document.createElement("canvas");
    canvas.width = 220;
    canvas.height = 1;
    this.keys.push(canvas);
    this.paint(canvas);
    element.append(minus(this.bottom), canvas, `${minus(this.top)} dB`);
    return element;
  }
}

function spectrogramPanel(host, view, title, spectrogram, scale) {
  const canvas = document.createElement("canvas");
  const { low, high, window } = facts.spectrogram;
  const spacing = (high - low) / (spectrogram.rows - 1);
  return new Panel(host, view, {
    title,
    hint: `Hz; windows of ${Math.round(window * 1000 / rate)} ms`,
    height: 170,
    range: [0, rate / 2],
    xAxis: { grid: { show: false } },
    yAxis: { grid: { show: false } },
    extra: [scale.key()],
    under: (plot, ctx, bbox) => {
      const { min, max } = plot.scales.x;
      const { step, columns, cells } = spectrogram.level((max - min) / bbox.width);
      const first = Math.max(0, Math.floor(min / step));
      const end = Math.min(columns, Math.ceil(max / step));
      if (end <= first) {
        return;
      }
      paintCells(canvas, cells, spectrogram.rows, first, end, scale.table);
      const left = plot.valToPos(first * step, "x", true);
      const right = plot.valToPos(end * step, "x", true);
      const top = plot.valToPos(high + spacing / 2, "y", true);
      const bottom = plot.valToPos(low - spacing / 2, "y", true);
      ctx.drawImage(canvas, left, top, right - left, bottom - top);
    },
  });
}

function paintCells(canvas, cells, rows, first, end, table) {
  canvas.width = end - first;
  canvas.height = rows;
  const context = canvas.getContext("2d");
  const image = context.createImageData(canvas.width, rows);
  const pixels = new Uint32Array(image.data.buffer);
  for (let column = first; column < end; column++) {
    for (let row = 0; row < rows; row++) {
      pixels[(rows - 1 - row) * canvas.width + column - first] = table[cells[column * rows + row]];
    }
  }
  context.putImageData(image, 0, 0);
}

function minus(number) {
  return String(number).replace("-", "\u2212");
}
