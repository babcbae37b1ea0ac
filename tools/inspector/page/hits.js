// All hits that the inspector holds, in the order in which they came.

const kMostHeaderLists = 5000;

/// Where the first hit with that sequence or a later one is, or would be.
export function placeOf(list, sequence) {
  let low = 0;
  let high = list.length;
  while (low < high) {
    const middle = (low + high) >> 1;
    if (list[middle].sequence < sequence) low = middle + 1;
    else high = middle;
  }
  return low;
}

/// Takes the hits before that sequence out of the list, but for the pinned ones.
export function dropBefore(list, sequence) {
  const removed = list.splice(0, placeOf(list, sequence));
  list.unshift(...removed.filter(hit => hit.pinned));
}

export class Hits {
  list = [];  // ascending
  first = 0;  // hits before are gone, but for the pinned ones
  dropped = 0;
  #headerLists = new Map();

  find(sequence) {
    const hit = this.list[placeOf(this.list, sequence)];
    return hit?.sequence === sequence ? hit : null;
  }

  reset() {
    this.list = [];
    this.#headerLists.clear();
  }

  /// Takes in what the inspector tells; answers {added, changed}, both lists of hits.
  take({first, dropped, cleared, hits}) {
    this.first = first;
    this.dropped = dropped;
    if (cleared) this.list = this.list.filter(hit => hit.pinned);
    const added = [];
    const changed = [];
    for (const told of hits) {
      if (told.url === undefined) this.#change(told, changed);
      else added.push(this.#add(told));
    }
    dropBefore(this.list, first);
    return {added, changed};
  }

  #change(told, changed) {
    const hit = this.find(told.sequence);
    if (hit === null) return;
    Object.assign(hit, told);
    if (told.gone) hit.pinned = false;
    changed.push(hit);
  }

  #add(hit) {
    const previous = this.list.at(-1);
    hit.time = Date.parse(hit.time);
    hit.gap = previous && previous.source === hit.source ? Math.max(0, hit.time - previous.time) : null;
    hit.headers = this.#shared(hit.headers);
    this.list.push(hit);
    return hit;
  }

  /// One client's hits have the same headers, mostly, so they are kept once.
  #shared(headers) {
    const key = JSON.stringify(headers);
    const known = this.#headerLists.get(key);
    if (known) return known;
    if (this.#headerLists.size >= kMostHeaderLists) this.#headerLists.clear();
    this.#headerLists.set(key, headers);
    return headers;
  }
}
