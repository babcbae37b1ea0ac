// The list of hits: as many rows as are in sight, which are filled anew while it is scrolled.

import {byId, make, setAttribute, setText} from "./dom.js";
import {outcomeClass, spanText, statusText, summaryOf, timeText} from "./parts.js";

const kColumns = ["pin", "sequence", "time", "gap", "number", "kind", "method", "url", "status"];
const kSpareRows = 4;  // above and below those in sight

export class List {
  #view;
  #onChoose;
  #grid = byId("list");
  #spacer = byId("spacer");
  #rows = byId("rows");
  #pool = [];
  #chosen = null;      // the sequence
  #top = null;         // the hit in the first row in sight, when it is scrolled: {sequence, index}
  #height = 0;         // of a row
  #isDue = false;
  onPin = () => {};

  constructor(view, onChoose) {
    this.#view = view;
    this.#onChoose = onChoose;
    this.#grid.addEventListener("scroll", () => {
      this.#rememberTop();
      this.refresh();
    }, {passive: true});
    this.#rows.addEventListener("click", event => this.#click(event));
    new ResizeObserver(() => this.refresh()).observe(this.#grid);
  }

  get chosen() { return this.#chosen; }

  /// Shows what has changed, with the next frame.
  refresh() {
    if (this.#isDue) return;
    this.#isDue = true;
    const draw = () => {
      this.#isDue = false;
      this.draw();
    };
    if (document.hidden) setTimeout(draw, 250);
    else requestAnimationFrame(draw);
  }

  draw() {
    const height = this.#rowHeight();
    const isOtherLayout = height !== this.#height;
    this.#height = height;
    const heads = this.#grid.firstElementChild.offsetHeight;
    const total = this.#view.length;
    this.#setHeight(total * height);
    this.#keepPlace(height, isOtherLayout);
    const first = Math.max(0, Math.floor(this.#grid.scrollTop / height) - kSpareRows);
    const room = Math.ceil((this.#grid.clientHeight - heads) / height) + 2 * kSpareRows;
    const count = Math.max(0, Math.min(room, total - first));
    this.#rows.style.transform = `translateY(${first * height}px)`;
    this.#setRowCount(count);
    for (let i = 0; i < count; ++i) this.#fill(this.#pool[i], this.#view.at(first + i), first + i);
    this.#grid.setAttribute("aria-rowcount", total + 1);
    byId("empty").hidden = total > 0;
    const isSeen = this.#pool.slice(0, count).some(row => row.hit?.sequence === this.#chosen);
    if (isSeen) this.#grid.setAttribute("aria-activedescendant", `hit-${this.#chosen}`);
    else this.#grid.removeAttribute("aria-activedescendant");
  }

  choose(sequence, isScrolled = true) {
    this.#chosen = sequence;
    const index = sequence === null ? -1 : this.#view.indexOf(sequence);
    if (isScrolled && index >= 0) this.#scrollTo(index);
    this.refresh();
    this.#onChoose(sequence);
  }

  /// By so many rows, or to the end with an infinite number.
  move(rows) {
    const {length} = this.#view;
    if (length === 0) return;
    const current = this.#chosen === null ? -1 : this.#view.indexOf(this.#chosen);
    const start = current < 0 && rows > 0 ? -1 : current;
    const index = Math.min(length - 1, Math.max(0, start + rows));
    this.choose(this.#view.at(index).sequence);
  }

  get rowsInSight() {
    return Math.max(1, Math.floor(this.#grid.clientHeight / this.#rowHeight()) - 2);
  }

  focus() { this.#grid.focus(); }

  /// Of all rows. What is the same is not set again, since the browser would lay out the page for it.
  #setHeight(height) {
    const text = `${height}px`;
    if (this.#spacer.style.height !== text) this.#spacer.style.height = text;
  }

  #rowHeight() {
    return parseFloat(getComputedStyle(this.#grid).getPropertyValue("--row-height"));
  }

  #scrollTo(index) {
    const height = this.#rowHeight();
    const room = this.#grid.clientHeight - this.#grid.firstElementChild.offsetHeight;
    const place = index * height;
    this.#setHeight(this.#view.length * height);
    if (place < this.#grid.scrollTop) this.#grid.scrollTop = place;
    else if (place + height > this.#grid.scrollTop + room) this.#grid.scrollTop = place + height - room;
    this.#rememberTop();
  }

  /// While somebody reads further down, what comes above does not move what they read.
  #rememberTop() {
    const index = Math.floor(this.#grid.scrollTop / this.#rowHeight());
    this.#top = index > 0 && index < this.#view.length
      ? {sequence: this.#view.at(index).sequence, index} : null;
  }

  #keepPlace(height, isOtherLayout) {
    if (this.#top === null) return;
    const index = this.#view.indexOf(this.#top.sequence);
    if (index < 0 || (index === this.#top.index && !isOtherLayout)) return;
    const within = isOtherLayout ? 0 : this.#grid.scrollTop - this.#top.index * height;
    this.#top.index = index;
    this.#grid.scrollTop = index * height + within;
  }

  #setRowCount(count) {
    while (this.#pool.length < count) {
      const cells = kColumns.map(name => make("span", {role: "gridcell", class: name}));
      const row = make("div", {role: "row"}, ...cells);
      row.cells = Object.fromEntries(kColumns.map((name, i) => [name, cells[i]]));
      row.cells.path = make("span", {class: "path"});
      row.cells.query = make("span", {class: "query"});
      row.cells.url.append(row.cells.path, row.cells.query);
      this.#pool.push(row);
      this.#rows.append(row);
    }
    for (let i = 0; i < this.#pool.length; ++i) this.#pool[i].hidden = i >= count;
  }

  #fill(row, hit, index) {
    const {cells} = row;
    const isChosen = hit.sequence === this.#chosen;
    setAttribute(row, "aria-rowindex", String(index + 2));
    setAttribute(row, "aria-selected", String(isChosen));
    setAttribute(row, "class", index % 2 ? "odd" : "");
    setText(cells.pin, hit.pinned ? "★" : "☆");
    setAttribute(cells.pin, "aria-label", hit.pinned ? "pinned" : "not pinned");
    setText(cells.status, statusText(hit));
    setAttribute(cells.status, "class", `status ${outcomeClass(hit)}`);
    setText(cells.gap, spanText(hit.gap));
    if (row.hit === hit) return;
    row.hit = hit;
    row.id = `hit-${hit.sequence}`;
    setText(cells.sequence, String(hit.sequence));
    setText(cells.time, timeText(hit.time));
    setText(cells.kind, hit.kind);
    setAttribute(cells.kind, "class", `kind ${hit.kind}`);
    setText(cells.method, hit.method);
    const {path, query} = summaryOf(hit);
    setText(cells.path, path);
    setText(cells.query, query);
    cells.number.replaceChildren(hit.number ?? "", ...marksOf(hit));
  }

  #click(event) {
    const row = event.target.closest("[role=row]");
    if (!row?.hit) return;
    if (event.target === row.cells.pin) this.onPin(row.hit);
    else this.choose(row.hit.sequence, false);
  }
}

export function marksOf(hit) {
  const marks = [];
  if (hit.repeats !== undefined) {
    marks.push(make("b", {class: "mark again", title: `the same number as hit ${hit.repeats}`}, "again"));
  }
  if (hit.outOfOrder) {
    marks.push(make("b", {class: "mark late", title: "a higher number came before"}, "late"));
  }
  return marks;
}
