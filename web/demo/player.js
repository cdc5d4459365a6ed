// Plays a recording and its cleaned form at once, of which one is heard: so the change between them has no seam.

const FADE = 0.01; // seconds

export class Player {
  #context = null;
  #buffers = null;
  #sources = null;
  #gains = [];
  #begun = 0; // the context's time at which position 0 would have been played
  #position = 0;
  #end = Infinity; // of what is played
  #hears = 1;

  /** Called when the sound ends by itself. */
  onEnd = () => {};

  /** Takes two recordings of one length, before and after. */
  load(recordings) {
    this.stop();
    this.#buffers = recordings.map(({ sampleRate, channelData }) => {
      const buffer = new AudioBuffer({ sampleRate, numberOfChannels: channelData.length, length: channelData[0].length });
      channelData.forEach((one, c) => buffer.copyToChannel(one instanceof Int16Array ? Float32Array.from(one, (x) => x / 32768) : one, c));
      return buffer;
    });
    this.#position = 0;
  }

  get duration() { return this.#buffers?.[0].duration ?? 0; }
  get plays() { return this.#sources !== null; }
  get position() {
    const now = this.plays ? this.#context.currentTime - this.#begun : this.#position;
    return Math.min(Math.max(now, 0), this.duration);
  }

  /** 0 before, 1 after. */
  hear(which) {
    this.#hears = which;
    this.#gains.forEach(({ gain }, i) => gain.setTargetAtTime(Number(i === which), this.#context.currentTime, FADE));
  }

  async play(from = this.position, to = Infinity) {
    this.stop();
    this.#context ??= new AudioContext();
    await this.#context.resume();
    const start = from >= this.duration ? 0 : from;
    const when = this.#context.currentTime + 0.02;
    this.#begun = when - start;
    this.#end = to;
    this.#gains = this.#buffers.map((_, i) => new GainNode(this.#context, { gain: Number(i === this.#hears) }));
    this.#sources = this.#buffers.map((buffer, i) => {
      const source = new AudioBufferSourceNode(this.#context, { buffer });
      source.connect(this.#gains[i]).connect(this.#context.destination);
      source.start(when, start, Math.min(to, this.duration) - start);
      return source;
    });
    const [first] = this.#sources;
    first.onended = () => {
      if (this.#sources?.[0] === first) {
        this.stop();
        this.#position = Math.min(this.#end, this.duration);
        this.onEnd();
      }
    };
  }

  stop() {
    if (this.plays) {
      this.#position = this.position;
      this.#sources.forEach((source) => source.stop());
      this.#gains.forEach((gain) => gain.disconnect());
      this.#sources = null;
      this.#gains = [];
    }
  }

  async seek(position) {
    if (this.plays) {
      await this.play(position);
    } else {
      this.#position = position;
    }
  }
}
