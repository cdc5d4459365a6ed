// Puts everything in its place.

const find = (id) => document.getElementById(id);

function describe() {
  const name = facts.source.name.split("/").filter(Boolean).at(-1) ?? facts.source.name;
  document.title = `${name}: Korvane VAD report`;
  find("name").textContent = name;
  const { segments } = facts;
  const speech = segments.reduce((sum, [start, end]) => sum + end - start, 0);
  find("summary").textContent = `${sampleTime(facts.length)} ${timeUnit} at ${rate} Hz, ` +
    `${counted(segments.length, "speech segment")}, ${sampleTime(speech, 1)} s of speech ` +
    `(${(100 * speech / facts.length).toFixed(1)} %)`;
  for (const [label, value] of factRows()) {
    find("facts-list").append(element("dt", label), element("dd", value));
  }
}

function say(text) {
  find("note").textContent = text;
  find("note").hidden = false;
}

function segmentAt(samples) {
  return facts.segments.findIndex(([start, end]) => samples >= start && samples < end);
}

/** The strip above the charts, as wide as they: the whole recording, its segments, and what the charts show. */
function connectOverview(view, player) {
  const host = find("overview");
  const { over } = view.panels[0].plot;
  const percent = (seconds) => `${100 * seconds / duration}%`;
  const paint = () => {
    const chart = over.getBoundingClientRect();
    host.style.marginLeft = `${chart.left - host.parentElement.getBoundingClientRect().left}px`;
    host.style.width = `${chart.width}px`;
    const canvas = document.createElement("canvas");
    canvas.width = Math.max(1, Math.round(host.clientWidth * devicePixelRatio));
    canvas.height = 1;
    canvas.className = "strip";
    const context = canvas.getContext("2d");
    context.fillStyle = colour("speech");
    for (const [from, to] of segmentTimes) {
      context.fillRect(from / duration * canvas.width, 0, Math.max(1, (to - from) / duration * canvas.width), 1);
    }
    find("overview-speech").replaceChildren(canvas);
  };
  const place = () => {
    find("overview-window").style.left = percent(view.from);
    find("overview-window").style.width = percent(view.span());
  };
  const grab = (event) => {
    const box = host.getBoundingClientRect();
    const middle = (event.clientX - box.left) / box.width * duration;
    view.show(middle - view.span() / 2, middle + view.span() / 2);
  };
  host.addEventListener("pointerdown", (event) => {
    host.setPointerCapture(event.pointerId);
    grab(event);
  });
  host.addEventListener("pointermove", (event) => {
    if (host.hasPointerCapture(event.pointerId)) {
      grab(event);
    }
  });
  view.listeners.push(place);
  place();
  paint();
  requestAnimationFrame(paint); // when the charts have their places
  return { paint, moveHead: () => { find("overview-head").style.left = percent(player.position); } };
}

/**
 * A click or tap, neither the end of a drag nor of a pinch, moves the position. The browser's own click
 * does not do: after a swipe it may keep a tap to itself, taking it for the end of the movement.
 */
function connectClicks(panel, view, player) {
  const { over } = panel.plot;
  let down = null;
  over.addEventListener("pointerdown", (event) => {
    down = event.isPrimary && event.button === 0 ? { x: event.clientX, y: event.clientY } : null;
  });
  over.addEventListener("pointerup", (event) => {
    if (down && event.isPrimary && Math.hypot(event.clientX - down.x, event.clientY - down.y) < 5) {
      player.seek(view.timeAt(event.clientX, over));
    }
    down = null;
  });
}

function connectKeys(view, player, go) {
  const actions = {
    " ": () => player.toggle(),
    "b": () => player.other(),
    "+": () => view.zoom(0.5),
    "=": () => view.zoom(0.5),
    "-": () => view.zoom(2),
    "0": () => view.showAll(),
    "arrowleft": (event) => player.seek(player.position - (event.shiftKey ? 5 : 1)),
    "arrowright": (event) => player.seek(player.position + (event.shiftKey ? 5 : 1)),
    "pageup": () => view.move(-0.8 * view.span()),
    "pagedown": () => view.move(0.8 * view.span()),
    "n": () => go(facts.segments.findIndex(([start]) => start > Math.round(player.position * rate))),
    "p": () => go(facts.segments.findLastIndex(([start]) => start < Math.round(player.position * rate))),
  };
  document.addEventListener("keydown", (event) => {
    const own = event.target.closest("button, summary, a"); // keys that these have a use for
    if (event.ctrlKey || event.altKey || event.metaKey || (own && event.key === " ")) {
      return;
    }
    const inCharts = find("panels").contains(event.target);
    const key = event.key.toLowerCase();
    if (actions[key] && (inCharts || !key.startsWith("page"))) { // elsewhere these scroll the page
      event.preventDefault();
      actions[key](event);
    }
  });
}

/** The charts, one under another. */
async function makePanels(host, view) {
  const envelope = async (name) => new Envelope(await takePacked(`waveform-${name}`), facts.waveform_bucket, 1 / rate, 0);
  const measure = async (name) => new Envelope(await takePacked(name), facts.level_bucket, facts.timing.frame / rate, -facts.timing.delay / rate);
  const spectrogram = async (name) => new Spectrogram(await takePacked(`spectrogram-${name}`), facts.spectrogram);
  const [before, after] = [await envelope("before"), await envelope("after")];
  const [level, score] = [await measure("level"), await measure("score")];
  const spectra = [await spectrogram("before"), await spectrogram("after")];
  const peak = Math.max(0.01, 1.05 * Math.max(before.peak(), after.peak()) / 32768);
  const scale = new LevelScale(spectra);
  view.add(waveformPanel(host, view, "Waveform before", "before", before, peak));
  view.add(waveformPanel(host, view, "Waveform after", "after", after, peak));
  const adaptive = facts.decision === "adaptive";
  view.add(measurePanel(host, view, level, { title: "Level of the cleaned frames", scale: "dB of full scale", unit: " dB",
    splits: [-100, -80, -60, -40, -20, 0], steps: facts.level_steps, decides: !adaptive }));
  if (adaptive) {
    view.add(measurePanel(host, view, score, { title: "Score", scale: "how much is in favour of speech", unit: "",
      splits: [0, 0.2, 0.4, 0.6, 0.8, 1], steps: facts.score_steps, decides: true }));
  }
  view.add(decisionPanel(host, view));
  view.add(spectrogramPanel(host, view, "Spectrogram before", spectra[0], scale));
  view.add(spectrogramPanel(host, view, "Spectrogram after", spectra[1], scale));
  return { level, scale };
}

function connectButtons(view, player) {
  find("play").addEventListener("click", () => player.toggle());
  find("hear-before").addEventListener("click", () => player.hear("before"));
  find("hear-after").addEventListener("click", () => player.hear("after"));
  find("zoom-in").addEventListener("click", () => view.zoom(0.5));
  find("zoom-out").addEventListener("click", () => view.zoom(2));
  find("zoom-all").addEventListener("click", () => view.showAll());
  if (facts.no_audio) {
    say(facts.no_audio);
    for (const id of ["play", "hear-before", "hear-after"]) {
      find(id).disabled = true;
    }
  }
}

/** Level under the pointer. */
function connectReadout(view, level) {
  view.pointer = (time) => {
    const decibels = level.at(time ?? -1);
    find("readout").textContent = time === null ? `Time in ${timeUnit}` :
      `${secondsTime(time)} ${timeUnit}` + (decibels === undefined ? "" : `, level ${minus((decibels / facts.level_steps).toFixed(1))} dB`);
  };
  view.pointer(null);
}

function showPlayer({ position, playing, which }) {
  find("clock").textContent = `${secondsTime(position)} / ${sampleTime(facts.length)}`;
  find("play").classList.toggle("playing", playing);
  find("play").querySelector(".label").textContent = playing ? "Pause" : "Play";
  find("play").setAttribute("aria-label", playing ? "Pause" : "Play");
  find("hear-before").setAttribute("aria-pressed", String(which === "before"));
  find("hear-after").setAttribute("aria-pressed", String(which === "after"));
}

async function start() {
  describe();
  const view = new View();
  const player = new Player(takeBytes("audio-before"), takeBytes("audio-after"));
  const host = find("panels");
  const { level, scale } = await makePanels(host, view);
  const overview = connectOverview(view, player);
  connectSaving(JSON.parse(new TextDecoder().decode(await takePacked("results"))));
  const go = (index) => {
    if (index >= 0) {
      const [from, to] = segmentTimes[index];
      view.include(from, to);
      player.seek(from);
    }
  };
  const list = new SegmentList(find("segments"), player.active !== undefined, (index) => {
    go(index);
    player.play(segmentTimes[index][1]);
  });

  const showPosition = () => {
    const { position, playing } = player;
    if (playing && (position > view.to || position < view.from)) {
      view.show(position - 0.05 * view.span(), position + 0.95 * view.span());
    }
    for (const panel of view.panels) {
      panel.moveHead(position);
    }
    overview.moveHead();
    list.mark(segmentAt(position * rate));
    showPlayer(player);
  };
  player.changed = showPosition;
  player.failed = say;
  view.listeners.push(showPosition);
  connectReadout(view, level);
  for (const panel of view.panels) {
    connectClicks(panel, view, player);
  }
  connectKeys(view, player, go);
  connectButtons(view, player);

  let width = host.clientWidth;
  new ResizeObserver(() => {
    if (host.clientWidth !== width) {
      width = host.clientWidth;
      view.panels.forEach((panel) => panel.resize());
      overview.paint();
      showPosition();
    }
  }).observe(host);
  darkScheme.addEventListener("change", () => {
    scale.colour();
    overview.paint();
    view.panels.forEach((panel) => panel.plot.redraw());
  });
  showPosition();
  document.documentElement.dataset.ready = "yes";
}

start().catch((error) => {
  say(`The page cannot be shown: ${error.message}`);
  throw error;
});
