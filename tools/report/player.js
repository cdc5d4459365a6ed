// Playback of both versions. Each has an audio element of its own; the one that is not heard rests
// and takes over the position when it is switched to.

class Player {
  constructor(before, after) {
    this.which = "after";
    this.rest = 0; // position where there is no audio
    this.stopAt = null;
    this.changed = () => {};
    this.failed = () => {};
    this.elements = before ? { before: this.element(before), after: this.element(after) } : null;
  }

  element(bytes) {
    const audio = new Audio();
    audio.preload = "auto";
    audio.src = URL.createObjectURL(new Blob([bytes], { type: facts.audio_type }));
    for (const type of ["play", "pause", "seeked", "timeupdate", "ended"]) {
      audio.addEventListener(type, () => this.tick());
    }
    audio.addEventListener("error", () => this.failed("This browser cannot play the audio in this page."));
    return audio;
  }

  get active() {
    return this.elements?.[this.which];
  }

  get position() {
    return this.active?.currentTime ?? this.rest;
  }

  get playing() {
    return this.active !== undefined && !this.active.paused;
  }

  seek(seconds) {
    this.stopAt = null;
    this.moveTo(Math.min(Math.max(0, seconds), duration));
  }

  moveTo(seconds) {
    if (this.active) {
      this.active.currentTime = seconds;
    }
    this.rest = seconds;
    this.changed();
  }

  play(until = null) {
    this.stopAt = until;
    if (!this.active) {
      return;
    }
    // A pause while the audio is still on its way ends play() early; that is no failure.
    this.active.play().catch((error) => {
      if (error.name !== "AbortError") {
        this.failed(`The audio cannot be played: ${error.message}`);
      }
    });
    this.follow();
  }

  pause() {
    this.active?.pause();
  }

  toggle() {
    if (this.playing) {
      this.pause();
    } else {
      if (this.active?.ended) {
        this.moveTo(0);
      }
      this.play();
    }
  }

  hear(which) {
    if (which === this.which) {
      return;
    }
    const { position, playing, stopAt } = this;
    this.pause();
    this.which = which;
    this.moveTo(position);
    if (playing) {
      this.play(stopAt);
    }
  }

  other() {
    this.hear(this.which === "after" ? "before" : "after");
  }

  tick() {
    if (this.playing && this.stopAt !== null && this.position >= this.stopAt) {
      const end = this.stopAt;
      this.pause();
      this.seek(end);
    }
    this.changed();
  }

  /** Tells the position at every picture while it plays. */
  follow() {
    requestAnimationFrame(() => {
      this.tick();
      if (this.playing) {
        this.follow();
      }
    });
  }
}
