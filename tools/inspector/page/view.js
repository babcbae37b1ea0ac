// The hits that a filter lets through, newest first. A new filter goes over the hits in slices of a
// few milliseconds, from the newest on, so that the page stays quick with any number of them.

import {dropBefore, placeOf} from "./hits.js";

const kSlice = 6;  // milliseconds

export class View {
  #hits;
  #onChange;
  #accepts = () => true;
  #newer = [];         // ascending: what was found when the scan had ended, and what came since
  #older = [];         // descending: what the scan has found so far
  #scanEnd = null;     // the sequence before which the scan goes on; null when it has ended
  #pausedAt = null;    // the sequence from which hits are held back

  constructor(hits, onChange) {
    this.#hits = hits;
    this.#onChange = onChange;
  }

  get length() { return this.#newer.length + this.#older.length; }
  get isScanning() { return this.#scanEnd !== null; }
  get isPaused() { return this.#pausedAt !== null; }
  /// How many hits are held back.
  get heldBack() {
    return this.isPaused ? this.#hits.list.length - placeOf(this.#hits.list, this.#pausedAt) : 0;
  }

  /// 0 is the newest.
  at(index) {
    const {length} = this.#newer;
    return index < length ? this.#newer[length - 1 - index] : this.#older[index - length];
  }

  /// -1 if it is not among them.
  indexOf(sequence) {
    const place = placeOf(this.#newer, sequence);
    if (this.#newer[place]?.sequence === sequence) return this.#newer.length - 1 - place;
    const older = this.#older.findIndex(hit => hit.sequence === sequence);
    return older < 0 ? -1 : this.#newer.length + older;
  }

  setFilter(accepts) {
    this.#accepts = accepts;
    this.#newer = [];
    this.#older = [];
    const isIdle = this.#scanEnd === null;
    this.#scanEnd = this.#pausedAt ?? (this.#hits.list.at(-1)?.sequence ?? 0) + 1;
    if (isIdle) this.#scan();
  }

  add(hits) {
    if (this.isPaused) return;
    for (const hit of hits) if (this.#accepts(hit)) this.#newer.push(hit);
    dropBefore(this.#newer, this.#hits.first);
  }

  /// To be called when hits have other outcomes or pins.
  change(hits) {
    for (const hit of hits) {
      const place = placeOf(this.#newer, hit.sequence);
      const isIn = this.#newer[place] === hit;
      const isAfterScan = this.#scanEnd === null || hit.sequence >= this.#newer[0]?.sequence;
      const belongs = this.#accepts(hit) && !hit.gone &&
        (!this.isPaused || hit.sequence < this.#pausedAt);
      if (isIn && !belongs) this.#newer.splice(place, 1);
      else if (!isIn && belongs && isAfterScan) this.#newer.splice(place, 0, hit);
    }
  }

  setPaused(isPaused) {
    if (isPaused === this.isPaused) return;
    const list = this.#hits.list;
    const from = this.#pausedAt;
    this.#pausedAt = isPaused ? (list.at(-1)?.sequence ?? 0) + 1 : null;
    if (!isPaused) this.add(list.slice(placeOf(list, from)));
  }

  #scan() {
    const {list} = this.#hits;
    const end = performance.now() + kSlice;
    let place = placeOf(list, this.#scanEnd);
    while (place > 0 && performance.now() < end) {
      for (const stop = Math.max(0, place - 200); place > stop;) {
        const hit = list[--place];
        if (this.#accepts(hit)) this.#older.push(hit);
      }
    }
    this.#scanEnd = place > 0 ? list[place].sequence : null;
    if (place > 0) {
      setTimeout(() => this.#scan());
    } else {
      this.#newer = this.#older.reverse().concat(this.#newer);
      this.#older = [];
      dropBefore(this.#newer, this.#hits.first);
    }
    this.#onChange();
  }
}
