// Puts the parts of the page together.

import {compare} from "./compare.js";
import {showDetail} from "./detail.js";
import {byId, copy, openDialog, say, setText} from "./dom.js";
import {openExport, startFiles} from "./files.js";
import {startFilter} from "./filter.js";
import {Hits} from "./hits.js";
import {startKeys, startTheme} from "./keys.js";
import {List} from "./list.js";
import {ask, startLive} from "./live.js";
import {statusText, urlParts} from "./parts.js";
import {Plot} from "./plot.js";
import {openRules, takeRules, takeTaken} from "./rules.js";
import {View} from "./view.js";

const kAnnouncementPause = 5000;  // milliseconds

const hits = new Hits();
let accepts = () => true;
let started = null;   // what the inspector said of itself
let compared = null;  // the first of two hits
let unannounced = 0;

const view = new View(hits, () => list.refresh());
const list = new List(view, showChosen);
const plot = new Plot(view);

function showChosen(sequence) {
  const hit = sequence === null ? null : hits.find(sequence);
  if (hit === null) byId("detail").hidden = true;
  else showDetail(hit, {close: closeDetail, pin: togglePin, compare: compareWith,
    isCompared: compared !== null && compared !== hit});
}

function closeDetail() {
  list.choose(null);
  list.focus();
}

async function togglePin(hit) {
  try {
    await ask(hit.pinned ? "DELETE" : "PUT", `pins/${hit.sequence}`);
  } catch (error) {
    say(error.message);
  }
}

function compareWith(hit) {
  if (compared === null || compared === hit) {
    compared = hit;
    return say(`Hit ${hit.sequence} will be compared: choose the other one, and compare again.`);
  }
  compare(...[compared, hit].sort((a, b) => a.sequence - b.sequence));
  compared = null;
  showChosen(hit.sequence);
}

const withChosen = action => () => {
  const hit = list.chosen === null ? null : hits.find(list.chosen);
  if (hit !== null) action(hit);
};

function togglePause() {
  view.setPaused(!view.isPaused);
  byId("pause").setAttribute("aria-pressed", view.isPaused);
  showCounts();
  list.refresh();
}

function showCounts() {
  setText(byId("pause"), view.isPaused ? `Go on (${view.heldBack} new)` : "Pause");
  setText(byId("counts"), `${view.length} of ${hits.list.length} hits shown`);
  if (started === null) return;
  const where = started.record && !started.recordError ? `are in ${started.record}` : "were dropped";
  const gone = hits.dropped > 0 ? `${hits.dropped} older ones ${where}` :
    `the last ${started.keep} are kept` + (started.record ? `, all in ${started.record}` : "");
  setText(byId("keeping"), started.recordError
    ? `Not recorded any more: ${started.recordError}` : gone);
}

function takeState(state) {
  started = state;
  hits.reset();
  view.setFilter(accepts);
  setText(byId("collector"), state.collector);
  for (const place of document.querySelectorAll(".collector-url")) setText(place, state.collector);
  showCounts();
}

function takeHits(told) {
  const {added, changed} = hits.take(told);
  view.add(added);
  view.change(changed);
  if (told.cleared) view.setFilter(accepts);
  if ([...added, ...changed].some(hit => hit.sequence === list.chosen)) showChosen(list.chosen);
  if (compared !== null && hits.find(compared.sequence) === null) compared = null;
  unannounced += added.length;
  showCounts();
  list.refresh();
}

function announce() {
  const hit = hits.list.at(-1);
  if (unannounced === 0 || view.isPaused || hit === undefined) return;
  byId("announcer").textContent = `${unannounced} new hits, the last one: ${hit.kind} ` +
    `${hit.method} ${urlParts(hit.url).path}, ${statusText(hit)}`;
  unannounced = 0;
}

async function clear() {
  try {
    await ask("DELETE", "hits");
    say("Cleared.");
  } catch (error) {
    say(error.message);
  }
}

const clickActions = {
  pause: togglePause,
  clear,
  rules: openRules,
  export: () => openExport(view),
  help: () => openDialog("help-dialog"),
  "copy-collector": () => copy(started?.collector ?? ""),
};
for (const [id, action] of Object.entries(clickActions)) byId(id).addEventListener("click", action);
for (const close of document.querySelectorAll("dialog .close")) {
  close.addEventListener("click", () => close.closest("dialog").close());
}

startKeys({
  "/": () => byId("f-text").focus(),
  "?": clickActions.help,
  r: openRules,
  e: clickActions.export,
}, {
  ArrowDown: () => list.move(1),
  ArrowUp: () => list.move(-1),
  j: () => list.move(1),
  k: () => list.move(-1),
  Home: () => list.move(-Infinity),
  End: () => list.move(Infinity),
  PageDown: () => list.move(list.rowsInSight),
  PageUp: () => list.move(-list.rowsInSight),
  Enter: () => byId("detail").hidden || byId("detail").focus(),
  Escape: closeDetail,
  " ": togglePause,
  p: withChosen(togglePin),
  c: withChosen(compareWith),
});
list.onPin = togglePin;
startTheme(() => plot.draw());
startFilter(filter => {
  accepts = filter;
  view.setFilter(accepts);
  showCounts();
});
startFiles();
setInterval(announce, kAnnouncementPause);
setInterval(showCounts, 500);
startLive({state: takeState, rules: takeRules, taken: takeTaken, hits: takeHits});
