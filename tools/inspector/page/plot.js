// Hits per second over the last two minutes, stacked by outcome.

import {byId, setText} from "./dom.js";
import {outcomeClass} from "./parts.js";

const kSeconds = 120;
const kOutcomes = ["ok", "error", "lost", "waiting"];  // from the bottom up

/// Counts by outcome for each second; the last one is `end`.
function countsOf(view, end) {
  const counts = Array.from({length: kSeconds}, () => ({ok: 0, error: 0, lost: 0, waiting: 0}));
  for (let i = 0; i < view.length; ++i) {
    const hit = view.at(i);
    const place = kSeconds - 1 - (end - Math.floor(hit.time / 1000));
    if (place < 0) break;
    if (place < kSeconds) ++counts[place][outcomeClass(hit)];
  }
  return counts;
}

const totalOf = counts => kOutcomes.reduce((sum, name) => sum + counts[name], 0);

export class Plot {
  #view;
  #canvas = byId("plot");
  #colours = {};

  constructor(view) {
    this.#view = view;
    new ResizeObserver(() => this.draw()).observe(this.#canvas);
    setInterval(() => document.hidden || this.draw(), 500);
  }

  draw() {
    const newest = this.#view.length > 0 ? this.#view.at(0).time : 0;
    const isLive = Date.now() - newest < kSeconds * 1000 && !this.#view.isPaused;
    const end = Math.floor((isLive ? Date.now() : newest) / 1000);
    const counts = countsOf(this.#view, end);
    const most = Math.max(1, ...counts.map(totalOf));
    this.#readColours();
    this.#drawBars(counts, most);
    this.#tell(counts, most);
  }

  #readColours() {
    for (const name of kOutcomes) {
      this.#colours[name] = getComputedStyle(document.querySelector(`#legend .${name}`)).borderLeftColor;
    }
    this.#colours.text = getComputedStyle(this.#canvas).color;
  }

  #drawBars(counts, most) {
    const canvas = this.#canvas;
    const scale = devicePixelRatio;
    const {clientWidth: width, clientHeight: height} = canvas;
    canvas.width = width * scale;
    canvas.height = height * scale;
    const context = canvas.getContext("2d");
    context.scale(scale, scale);
    const step = width / kSeconds;
    const head = 14;
    const unit = (height - head) / most;
    counts.forEach((second, i) => {
      let top = height;
      for (const name of kOutcomes) {
        const size = second[name] * unit;
        top -= size;
        context.fillStyle = this.#colours[name];
        context.fillRect(i * step, top, Math.max(1, step - 1), size);
      }
    });
    context.fillStyle = this.#colours.text;
    context.globalAlpha = 0.7;
    context.font = "11px system-ui, sans-serif";
    context.fillText(`${most} per second`, 4, 10);
    context.globalAlpha = 0.25;
    context.fillRect(0, height - 1, width, 1);
  }

  #tell(counts, most) {
    const last = totalOf(counts[kSeconds - 2]);
    const sums = kOutcomes.map(name => counts.reduce((sum, second) => sum + second[name], 0));
    const label = `In the last two minutes: ${sums[0]} hits answered, ${sums[1]} errors, ` +
      `${sums[2]} cut or left, ${sums[3]} waiting; at most ${most} per second`;
    this.#canvas.setAttribute("aria-label", label);
    setText(byId("rate"), `${last} hits/s`);
  }
}
