// The list of segments and the facts. All text goes in as text, never as markup.

const ROWS_AT_ONCE = 200;

function element(name, text, className) {
  const made = document.createElement(name);
  if (text !== undefined) {
    made.textContent = text;
  }
  if (className) {
    made.className = className;
  }
  return made;
}

function counted(count, what) {
  return `${count} ${what}${count === 1 ? "" : "s"}`;
}

class SegmentList {
  /** @param choose  called with a segment's index */
  constructor(host, canPlay, choose) {
    this.rows = [];
    this.canPlay = canPlay;
    this.choose = choose;
    this.current = -1;
    if (facts.segments.length === 0) {
      host.append(element("p", "No speech."));
      return;
    }
    const table = element("table");
    const heading = element("tr");
    for (const text of ["", "#", `Start (${timeUnit})`, `End (${timeUnit})`, "Duration (s)", ""]) {
      const cell = element("th", text);
      cell.scope = "col";
      heading.append(cell);
    }
    const head = element("thead");
    head.append(heading);
    this.body = element("tbody");
    table.append(head, this.body);
    this.more = element("button");
    this.more.type = "button";
    this.more.addEventListener("click", () => this.extend());
    host.append(table, this.more);
    if (facts.segments.at(-1)[2]) {
      host.append(element("p", "open: the recording ended before the speech did", "hint"));
    }
    this.extend();
  }

  extend() {
    const end = Math.min(facts.segments.length, this.rows.length + ROWS_AT_ONCE);
    while (this.rows.length < end) {
      this.rows.push(this.row(this.rows.length));
    }
    this.body.append(...this.rows);
    const left = facts.segments.length - end;
    this.more.hidden = left === 0;
    this.more.textContent = `Show more (${left} left)`;
    this.mark(this.current, true);
  }

  row(index) {
    const [start, end, open] = facts.segments[index];
    const row = element("tr");
    const button = element("button", this.canPlay ? "\u25B6\uFE0E" : "Show");
    button.type = "button";
    button.setAttribute("aria-label", `${this.canPlay ? "Play" : "Show"} segment ${index + 1}`);
    const cell = element("td");
    cell.append(button);
    row.append(cell, element("td", String(index + 1)), element("td", sampleTime(start)), element("td", sampleTime(end)),
      element("td", sampleTime(end - start, 1)), element("td", open ? "open" : "", "mark"));
    row.addEventListener("click", () => this.choose(index));
    return row;
  }

  /** Marks the segment that the position is in; -1 for none. */
  mark(index, again = false) {
    if (index !== this.current || again) {
      this.rows[this.current]?.classList.remove("current");
      this.rows[index]?.classList.add("current");
      this.current = index;
    }
  }
}

/** Offers the segments as the files that the command line writes: [name, extension, text] of each. */
function connectSaving(results) {
  const select = document.getElementById("format");
  select.append(...results.map(([name]) => new Option(name)));
  select.value = "audacity";
  document.getElementById("save").addEventListener("click", () => {
    const [, extension, text] = results[select.selectedIndex];
    const link = element("a");
    link.download = facts.source.name.split("/").at(-1).replace(/\.[^.]*$/, "") + extension;
    link.href = URL.createObjectURL(new Blob([text], { type: "text/plain" }));
    link.click();
    URL.revokeObjectURL(link.href);
  });
}

function alignmentText({ align, min_gap, min_speech, pad_start, pad_end, max_speech }) {
  const what = {
    none: "none: the frames answered with speech",
    onset: "delay at both ends and onset run at the start taken out",
    both: "delay at both ends, onset run and hang-over run taken out",
  }[align];
  const rules = [["gaps closed below", min_gap], ["dropped below", min_speech], ["padded at the start", pad_start],
    ["padded at the end", pad_end], ["split above", max_speech]].filter(([, samples]) => samples > 0);
  return [what, ...rules.map(([text, samples]) => `${text} ${inSamples(samples)}`)].join("; ");
}

function factRows() {
  const { source, timing } = facts;
  const converted = source.rate !== source.input_rate || source.channels !== source.input_channels;
  const speech = facts.segments.reduce((sum, [start, end]) => sum + end - start, 0);
  return [
    ["File", source.name],
    ["Sampling rate", `${source.rate} Hz`],
    ["Channels", source.channels === 1 ? "1" : `${source.channels} (charts: extremes and mean power of both)`],
    ...(converted ? [["As read", `${source.input_rate} Hz, ${counted(source.input_channels, "channel")}`]] : []),
    ["Length", `${facts.length} samples per channel, ${sampleTime(facts.length)} ${timeUnit}`],
    ["Speech", `${counted(facts.segments.length, "segment")}, ${sampleTime(speech, 1)} s`],
    ["Frames", `${facts.frames} of ${timing.frame} samples`],
    ["Decision", facts.decision],
    ["Delay taken out", inSamples(facts.delay)],
    ["Onset run", inSamples(timing.onset)],
    ["Hang-over run", inSamples(timing.hangover)],
    ["Alignment", alignmentText(facts.rules)],
    ["Bit-exact input", source.bit_exact ? "yes" : "no (resampled, or decoded from a lossy form)"],
    ["SHA-256 of the samples", facts.sha256],
    ["Tool", `korvane-vad ${facts.tool_version}`],
    ["Library", facts.library_version],
  ];
}
