// Two hits side by side.

import {button, byId, make, openDialog} from "./dom.js";
import {bodyParameters, dateTimeText, parametersIn, statusText, urlParts} from "./parts.js";

/// [{name, value}] as [[name, [values]]], with the values of one name in their order.
function grouped(parameters) {
  const groups = new Map();
  for (const {name, value} of parameters) groups.set(name, [...(groups.get(name) ?? []), value]);
  return groups;
}

/// [name, left, right] for each name that one of them has; undefined where it is missing.
function paired(left, right) {
  const [a, b] = [grouped(left), grouped(right)];
  return [...new Set([...a.keys(), ...b.keys()])].flatMap(name => {
    const [ours, theirs] = [a.get(name) ?? [], b.get(name) ?? []];
    const count = Math.max(ours.length, theirs.length);
    return Array.from({length: count}, (_, i) => [name, ours[i], theirs[i]]);
  });
}

const headersOf = hit => hit.headers.map(([name, value]) => ({name: name.toLowerCase(), value}));

/// [[title, [[name, left, right]]]]
export function comparisonOf(left, right) {
  const [a, b] = [urlParts(left.url), urlParts(right.url)];
  const bodies = [bodyParameters(left), bodyParameters(right)];
  const isTaken = bodies[0] !== null && bodies[1] !== null;
  return [
    ["Hit", [
      ["time", dateTimeText(left.time), dateTimeText(right.time)],
      ["kind", left.kind, right.kind],
      ["method", left.method, right.method],
      ["host", a.origin, b.origin],
      ["path", a.path, b.path],
      ["status", statusText(left), statusText(right)],
    ]],
    ["Parameters", paired(parametersIn(a.query), parametersIn(b.query))],
    ["Body", isTaken ? paired(...bodies)
      : [["text", left.body ?? left.body64, right.body ?? right.body64]]],
    ["Header", paired(headersOf(left), headersOf(right))],
  ];
}

const cell = value => value === undefined
  ? make("td", {class: "missing"}, "(missing)") : make("td", {}, value);

function rowsOf([title, rows], onlyDifferent) {
  const shown = rows.filter(([, left, right]) => !onlyDifferent || left !== right);
  if (shown.length === 0) return [];
  return [
    make("tr", {class: "group"}, make("th", {colspan: "4", scope: "colgroup"}, title)),
    ...shown.map(([name, left, right]) => make("tr", {class: left === right ? "" : "differs"},
      make("th", {scope: "row"}, name), make("td", {}, left === right ? "=" : "≠"),
      cell(left), cell(right))),
  ];
}

export function compare(left, right) {
  const dialog = openDialog("compare-dialog");
  const groups = comparisonOf(left, right);
  const count = groups.flatMap(([, rows]) => rows).filter(([, a, b]) => a !== b).length;
  const only = make("input", {type: "checkbox", id: "only-different", checked: true});
  const body = make("tbody");
  const fill = () => body.replaceChildren(...groups.flatMap(group => rowsOf(group, only.checked)));
  only.addEventListener("change", fill);
  fill();
  dialog.replaceChildren(
    make("h2", {id: "compare-title"}, `Hits ${left.sequence} and ${right.sequence}: ${count} differences`),
    make("p", {}, make("label", {}, only, " Only the differences")),
    make("div", {class: "scroll", tabindex: "0"}, make("table", {class: "comparison"},
      make("thead", {}, make("tr", {}, make("th", {scope: "col"}, "Name"), make("th", {scope: "col"}, ""),
        make("th", {scope: "col"}, `Hit ${left.sequence}`),
        make("th", {scope: "col"}, `Hit ${right.sequence}`))), body)),
    button("Close", () => byId("compare-dialog").close(), {class: "close"}));
}
