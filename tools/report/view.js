// The stretch of time that all charts show, and the ways to move it.

class View {
  constructor() {
    this.from = 0;
    this.to = duration;
    this.panels = [];
    this.listeners = [];
    this.pointer = () => {};
    this.shortest = Math.min(duration, 32 / rate);
    this.pending = false;
  }

  add(panel) {
    this.panels.push(panel);
    this.listenTo(panel.plot.over);
  }

  show(from, to) {
    const span = Math.min(duration, Math.max(this.shortest, to - from));
    const middle = (from + to) / 2;
    this.from = Math.min(Math.max(0, middle - span / 2), duration - span);
    this.to = this.from + span;
    this.schedule();
  }

  showAll() {
    this.show(0, duration);
  }

  span() {
    return this.to - this.from;
  }

  isAll() {
    return this.span() >= duration;
  }

  /** @param factor  below 1 shows less; the time `around` stays where it is */
  zoom(factor, around = (this.from + this.to) / 2) {
    const wanted = Math.min(duration, Math.max(this.shortest, this.span() * factor));
    const part = (around - this.from) / this.span();
    this.show(around - part * wanted, around + (1 - part) * wanted);
  }

  move(seconds) {
    this.show(this.from + seconds, this.to + seconds);
  }

  /** Shows at least from..to, with some room around, moving as little as need be. */
  include(from, to) {
    if (from >= this.from && to <= this.to) {
      return;
    }
    const span = Math.max(this.span(), (to - from) * 1.2);
    const start = Math.min(Math.max(0, from - (span - (to - from)) / 2), duration - Math.min(span, duration));
    this.show(start, start + span);
  }

  pointAt(time) {
    this.pointer(time);
  }

  schedule() {
    if (!this.pending) {
      this.pending = true;
      requestAnimationFrame(() => this.redraw());
    }
  }

  redraw() {
    this.pending = false;
    for (const panel of this.panels) {
      panel.refresh();
    }
    for (const listener of this.listeners) {
      listener();
    }
  }

  listenTo(over) {
    over.addEventListener("wheel", (event) => this.wheel(event, over), { passive: false });
    const touches = new Map();
    over.addEventListener("pointerdown", (event) => {
      if (event.pointerType === "touch") {
        touches.set(event.pointerId, event.clientX);
      }
    });
    over.addEventListener("pointermove", (event) => {
      if (touches.has(event.pointerId)) {
        this.touch(event, touches, over);
      }
    });
    for (const type of ["pointerup", "pointercancel"]) {
      over.addEventListener(type, (event) => touches.delete(event.pointerId));
    }
  }

  timeAt(clientX, over) {
    const box = over.getBoundingClientRect();
    return this.from + (clientX - box.left) / box.width * this.span();
  }

  wheel(event, over) {
    const unit = event.deltaMode === 1 ? 16 : event.deltaMode === 2 ? 400 : 1;
    const sideways = event.shiftKey || Math.abs(event.deltaX) > Math.abs(event.deltaY);
    if (sideways) {
      event.preventDefault();
      this.move((event.deltaX || event.deltaY) * unit / over.clientWidth * this.span());
    } else if (event.deltaY < 0 || event.ctrlKey || !this.isAll()) {
      // Otherwise all is shown already, and the wheel moves the page.
      event.preventDefault();
      const speed = event.ctrlKey ? 0.01 : 0.002; // a pinch on a touchpad comes in small steps
      this.zoom(Math.exp(event.deltaY * unit * speed), this.timeAt(event.clientX, over));
    }
  }

  /** One finger moves, two fingers keep the times under them. */
  touch(event, touches, over) {
    const box = over.getBoundingClientRect();
    const old = touches.get(event.pointerId);
    if (touches.size === 1) {
      this.move((old - event.clientX) / box.width * this.span());
    } else if (touches.size === 2) {
      const [other] = [...touches].filter(([id]) => id !== event.pointerId).map(([, x]) => x);
      const before = Math.max(10, Math.abs(old - other));
      const after = Math.max(10, Math.abs(event.clientX - other));
      this.zoom(before / after, this.timeAt(other, over));
    }
    touches.set(event.pointerId, event.clientX);
  }
}
