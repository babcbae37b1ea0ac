// The answer rules: the list of them, and the form for one.

import {button, byId, make, openDialog, say} from "./dom.js";
import {ask} from "./live.js";
import {formOf, ruleOf} from "./ruleform.js";

/// What a developer wants to try out first.
const kPresets = {
  "Answer with 503": {answer: {status: 503, body: "unavailable"}},
  "Answer with 404": {answer: {status: 404, body: "not found"}},
  "Answer after 3 seconds": {answer: {delay: 3000, body: "ok"}},
  "Cut the connection": {answer: {action: "cut"}},
  "Cut amid the answer": {answer: {action: "truncate", body: "half of this is sent"}},
  "No answer at all": {answer: {action: "silence"}},
  "A configuration": {match: {kind: "configuration"}, answer: {configuration: {version: 2}}},
};

let rules = [];
let edited = null;  // the place of the rule in the form; Infinity for a new one
let draft = null;   // what was in the form at first
let form = null;

export function takeRules(list) {
  rules = list;
  showCount();
  if (byId("rules-dialog").open) show();
}

export function takeTaken(counts) {
  counts.forEach((count, i) => {
    if (!rules[i]) return;
    rules[i].taken = count;
    const cell = byId(`taken-${i}`);
    if (cell) cell.textContent = takenText(rules[i]);
  });
}

export function openRules() {
  openDialog("rules-dialog");
  show();
}

function showCount() {
  const count = rules.filter(rule => rule.enabled).length;
  const badge = byId("rule-count");
  badge.textContent = count;
  badge.hidden = count === 0;
}

async function send(changed) {
  try {
    await ask("PUT", "rules", JSON.stringify(changed));
    return true;
  } catch (error) {
    showError(error.message);
    return false;
  }
}

function showError(text) {
  const place = byId("rules-error");
  if (place) place.textContent = text;
  say(text);
}

const changedAt = (place, rule) => rules.map((each, i) => i === place ? rule : each);

function moved(place, by) {
  const changed = [...rules];
  changed.splice(place + by, 0, ...changed.splice(place, 1));
  return changed;
}

const takenText = rule => `${rule.taken ?? 0}${rule.times ? ` of ${rule.times}` : ""} taken`;

function whenText({match = {}}) {
  const parts = [match.kind, match.method, match.path,
    ...Object.entries(match.parameters ?? {}).map(([name, value]) => `${name}=${value}`),
    ...Object.entries(match.headers ?? {}).map(([name, value]) => `${name}: ${value}`),
    match.text && `“${match.text}”`];
  return parts.filter(Boolean).join(", ") || "any request";
}

function thenText({answer = {}}) {
  const action = {cut: "cut", truncate: "cut amid the answer", silence: "no answer"}[answer.action];
  const what = action ?? (answer.configuration !== undefined ? "configuration" : String(answer.status ?? 200));
  return answer.delay ? `${what} after ${answer.delay} ms` : what;
}

function ruleItem(rule, i) {
  const name = rule.name || `Rule ${i + 1}`;
  const enabled = make("input", {type: "checkbox", checked: rule.enabled, "aria-label": `${name}: in use`,
    onchange: () => send(changedAt(i, {...rule, enabled: enabled.checked}))});
  return make("li", {class: i === edited ? "chosen" : ""},
    enabled,
    make("button", {type: "button", class: "rule", onclick: () => edit(i, rule)},
      make("b", {}, name), make("span", {}, `${whenText(rule)} → ${thenText(rule)}`)),
    make("span", {class: "row-actions"},
      make("span", {id: `taken-${i}`, class: "count"}, takenText(rule)),
      button("↑", () => sendAnew(moved(i, -1)), {disabled: i === 0, "aria-label": `${name}: up`}),
      button("↓", () => sendAnew(moved(i, 1)), {disabled: i === rules.length - 1, "aria-label": `${name}: down`}),
      button("Delete", () => sendAnew(rules.filter((_, place) => place !== i)), {"aria-label": `Delete ${name}`})));
}

function edit(place, rule) {
  edited = place;
  draft = rule;
  form = formOf(rule, place === Infinity, apply, () => {
    stopEditing();
    show();
  });
  show();
  byId("rule-name").focus();
}

function stopEditing() {
  edited = draft = form = null;
}

/// Rules have other places then, so that it is not known which one the form is for.
function sendAnew(changed) {
  stopEditing();
  return send(changed);
}

async function apply(event) {
  event.preventDefault();
  let rule;
  try {
    rule = ruleOf(form, draft);
  } catch (error) {
    return showError(error.message);
  }
  if (!await send(edited < rules.length ? changedAt(edited, rule) : [...rules, rule])) return;
  stopEditing();
  show();
}

function presetChoice() {
  const choice = make("select", {"aria-label": "New rule", onchange: () => {
    const preset = kPresets[choice.value];
    if (preset) edit(Infinity, {name: choice.value, enabled: true, ...structuredClone(preset)});
  }}, make("option", {value: ""}, "New rule…"), ...Object.keys(kPresets).map(name => make("option", {}, name)));
  return choice;
}

function save() {
  const link = make("a", {download: "rules.json",
    href: URL.createObjectURL(new Blob([JSON.stringify(rules, null, 2)], {type: "application/json"}))});
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10_000);
}

function loadButton() {
  const file = make("input", {type: "file", hidden: true, "aria-label": "File of rules",
    onchange: async () => {
      try {
        await send(JSON.parse(await file.files[0].text()));
      } catch {
        showError("The file is no JSON.");
      }
    }});
  return make("span", {}, button("Load…", () => file.click()), file);
}

function show() {
  const dialog = byId("rules-dialog");
  const controls = () => [...dialog.querySelectorAll("button, input, select, textarea")];
  const focused = controls().indexOf(document.activeElement);
  dialog.replaceChildren(
    make("h2", {id: "rules-title"}, "Answer rules"),
    make("p", {class: "hint"}, "The first rule that is in use and matches answers a request. Without any, the answer is 200."),
    rules.length > 0 ? make("ol", {class: "rules"}, ...rules.map(ruleItem)) : make("p", {class: "none"}, "There are no rules."),
    make("p", {class: "choices"}, presetChoice(), loadButton(),
      button("Save as a file", save, {disabled: rules.length === 0}),
      button("Close", () => dialog.close(), {class: "close"})),
    make("p", {id: "rules-error", class: "error-text", role: "alert"}),
    ...(form === null ? [] : [form]));
  if (focused >= 0) controls()[focused]?.focus();
}
