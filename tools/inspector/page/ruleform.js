// The form for one answer rule.

import {button, make} from "./dom.js";

const kActions = {answer: "answer", cut: "cut the connection", truncate: "cut amid the answer",
  silence: "no answer at all"};
const kKinds = {"": "any", hit: "hit", segment: "segment", configuration: "configuration", other: "other"};

const linesOf = (pairs, sign) =>
  Object.entries(pairs ?? {}).map(([name, value]) => name + sign + value).join("\n");

function pairsIn(text, sign) {
  const pairs = {};
  for (const line of text.split("\n").map(each => each.trim()).filter(Boolean)) {
    const place = line.indexOf(sign.trim());
    if (place <= 0) throw new Error(`“${line}” is not like name${sign}value.`);
    pairs[line.slice(0, place).trim()] = line.slice(place + 1).trim();
  }
  return pairs;
}

const input = (name, value, attributes = {}) =>
  make("input", {name, value: value ?? "", id: `rule-${name}`, autocomplete: "off", ...attributes});

function area(name, value, rows, placeholder = "") {
  const element = make("textarea", {name, rows, placeholder, spellcheck: "false"});
  element.value = value ?? "";
  return element;
}

function choice(name, options, value) {
  const element = make("select", {name},
    ...Object.entries(options).map(([key, text]) => make("option", {value: key}, text)));
  element.value = value ?? Object.keys(options)[0];
  return element;
}

const field = (text, element, isWide = false) => make("label", {class: isWide ? "wide" : ""}, text, element);

export function formOf(rule, isNew, onSubmit, onCancel) {
  const {match = {}, answer = {}} = rule;
  const configuration = answer.configuration === undefined ? "" : JSON.stringify(answer.configuration, null, 2);
  return make("form", {class: "rule-form", onsubmit: onSubmit, "aria-label": "Rule"},
    field("Name", input("name", rule.name), true),
    make("fieldset", {},
      make("legend", {}, "Requests for which all of this holds"),
      field("Kind", choice("kind", kKinds, match.kind)),
      field("Method", input("method", match.method, {size: 7, placeholder: "any"})),
      field("Path", input("path", match.path, {placeholder: "/hit*"}), true),
      field("Parameters", area("parameters", linesOf(match.parameters, "="), 2, "id=7"), true),
      field("Header", area("matchHeaders", linesOf(match.headers, ": "), 2, "User-Agent: *kiosk*"), true),
      field("Text in the URL or body", input("text", match.text), true),
      field("At most", input("times", rule.times, {type: "number", min: 1, placeholder: "any"}))),
    make("fieldset", {},
      make("legend", {}, "Get"),
      field("Action", choice("action", kActions, answer.action)),
      field("Status", input("status", answer.status ?? 200, {type: "number", min: 200, max: 599})),
      field("Delay in ms", input("delay", answer.delay ?? 0, {type: "number", min: 0, max: 600000})),
      field("Header", area("headers", linesOf(answer.headers, ": "), 2, "Retry-After: 5"), true),
      field("Body", area("body", answer.body, 3), true),
      field("Or a configuration (JSON)", area("configuration", configuration, 4, '{"version": 2}'), true),
      field("Last modified", input("modified", answer.modified, {placeholder: "when this is applied"}), true)),
    make("p", {class: "choices"}, make("button", {}, isNew ? "Add" : "Apply"), button("Cancel", onCancel)));
}

const filled = members => Object.fromEntries(Object.entries(members).filter(([, value]) =>
  value !== "" && value !== 0 && (typeof value !== "object" || Object.keys(value).length > 0)));

/// The rule that the form says. Throws an Error with what is wrong.
export function ruleOf(form, before) {
  const text = name => form.elements[name].value;
  const answer = filled({
    action: text("action"),
    status: Number(text("status")),
    delay: Number(text("delay")),
    headers: pairsIn(text("headers"), ": "),
    body: text("body"),
  });
  if (text("configuration").trim() !== "") {
    try {
      answer.configuration = JSON.parse(text("configuration"));
    } catch {
      throw new Error("The configuration is no JSON.");
    }
    // A configuration that was changed here is a newer one, unless its time was changed, too.
    const isSame = JSON.stringify(answer.configuration) === JSON.stringify(before.answer?.configuration);
    const modified = text("modified").trim();
    if (modified !== "" && (isSame || modified !== before.answer?.modified)) answer.modified = modified;
  }
  return {
    ...filled({name: text("name"), times: Number(text("times")), taken: before.taken ?? 0}),
    enabled: before.enabled ?? true,
    match: filled({
      kind: text("kind"),
      method: text("method").trim(),
      path: text("path").trim(),
      parameters: pairsIn(text("parameters"), "="),
      headers: pairsIn(text("matchHeaders"), ": "),
      text: text("text"),
    }),
    answer,
  };
}
