// Makes of the form a function that says whether a hit is let through. All that is filled in must hold.

import {byId} from "./dom.js";
import {allParameters, decoded, outcomeClass, parametersIn} from "./parts.js";

function textTest(text) {
  const wanted = text.toLowerCase();
  const isIn = given => given.toLowerCase().includes(wanted) ||
    (/[%+]/.test(given) && decoded(given).toLowerCase().includes(wanted));
  return hit => isIn(hit.url) || (hit.body !== undefined && isIn(hit.body));
}

/// * stands for anything.
function patternTest(pattern) {
  const parts = pattern.split("*").map(part => part.replace(/[\\^$.|?+()[\]{}]/g, "\\$&"));
  const expression = new RegExp(`^${parts.join("[^]*")}$`, "i");
  return text => expression.test(text);
}

function parameterTest(text) {
  const wanted = parametersIn(text).map(({name, value, raw}) =>
    ({name, isValue: raw.includes("=") ? patternTest(value) : () => true}));
  return hit => {
    const given = allParameters(hit);
    return wanted.every(({name, isValue}) =>
      given.some(each => each.name === name && isValue(each.value)));
  };
}

function statusTest(text) {
  const wanted = text.toLowerCase();
  const status = /^[1-5]xx$/.test(wanted)
    ? hit => hit.status >= 100 * wanted[0] && hit.status < 100 * wanted[0] + 100
    : hit => String(hit.status) === wanted;
  return hit => hit.outcome === wanted || outcomeClass(hit) === wanted || status(hit);
}

const kMarks = {
  pinned: hit => Boolean(hit.pinned),
  again: hit => hit.repeats !== undefined,
  late: hit => Boolean(hit.outOfOrder),
};

/// Each field of the form with the test that its text makes.
const kFields = {
  "f-text": textTest,
  "f-parameter": parameterTest,
  "f-status": statusTest,
  "f-kind": kind => hit => hit.kind === kind,
  "f-mark": mark => kMarks[mark],
  "f-from": text => (time => hit => hit.time >= time)(Date.parse(text)),
  "f-to": text => (time => hit => hit.time < time + 1000)(Date.parse(text)),
};

function currentFilter() {
  const tests = Object.entries(kFields)
    .map(([id, test]) => [byId(id).value.trim(), test])
    .filter(([text]) => text !== "")
    .map(([text, test]) => test(text));
  return hit => tests.every(test => test(hit));
}

/// Calls back whenever the form says something else.
export function startFilter(onChange) {
  const form = byId("filter");
  form.addEventListener("input", () => onChange(currentFilter()));
  form.addEventListener("reset", () => setTimeout(() => onChange(currentFilter())));
  byId("more").addEventListener("click", () =>
    byId("more").setAttribute("aria-expanded", form.classList.toggle("open")));
  form.addEventListener("submit", event => event.preventDefault());
}
