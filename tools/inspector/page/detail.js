// What is in one hit.

import {button, byId, copy, make} from "./dom.js";
import {marksOf} from "./list.js";
import {bodyKind, bodyParameters, dateTimeText, outcomeClass, parametersIn, spanText, statusText,
  urlParts} from "./parts.js";

const kMostRows = 2000;
const kLongestText = 100_000;  // characters of a raw text that are shown

function pairsTable(label, heads, rows) {
  if (rows.length === 0) return null;
  return make("section", {"aria-label": label},
    make("h3", {}, `${label} `, make("span", {class: "count"}, String(rows.length))),
    make("table", {},
      make("thead", {}, make("tr", {}, ...heads.map(head => make("th", {scope: "col"}, head)))),
      make("tbody", {}, ...rows.slice(0, kMostRows).map(([name, ...values]) => make("tr", {},
        make("th", {scope: "row"}, name), ...values.map(value => make("td", {}, value)))))),
    rows.length > kMostRows ? make("p", {}, `The first ${kMostRows} of ${rows.length}.`) : null);
}

const parameterRows = parameters =>
  parameters.map(({name, value, raw}) => [name, value, make("code", {}, raw)]);

function rawText(label, text) {
  const isCut = text.length > kLongestText;
  return make("section", {"aria-label": label},
    make("h3", {}, `${label} `, button("Copy", () => copy(text), {class: "small"})),
    make("pre", {tabindex: "0"}, text.slice(0, kLongestText)),
    isCut ? make("p", {}, `The first ${kLongestText} of ${text.length} characters.`) : null);
}

function bytesText(hit) {
  const bytes = Uint8Array.from(atob(hit.body64), letter => letter.charCodeAt(0));
  const lines = [];
  for (let i = 0; i < Math.min(bytes.length, 4096); i += 16) {
    const line = [...bytes.subarray(i, i + 16)];
    const digits = line.map(byte => byte.toString(16).padStart(2, "0")).join(" ");
    const letters = line.map(byte => byte > 31 && byte < 127 ? String.fromCharCode(byte) : ".").join("");
    lines.push(`${i.toString(16).padStart(6, "0")}  ${digits.padEnd(48)} ${letters}`);
  }
  return lines.join("\n");
}

function bodySections(hit) {
  const kind = bodyKind(hit);
  if (kind === "none") return [];
  const parameters = bodyParameters(hit);
  const text = kind === "bytes" ? bytesText(hit) : hit.body;
  const kept = kind === "bytes" ? atob(hit.body64).length : new TextEncoder().encode(hit.body).length;
  return [
    parameters && pairsTable("Body", ["Name", "Value", "Raw"], parameterRows(parameters)),
    rawText(kind === "bytes" ? "Body, in bytes" : "Body as it came", text),
    hit.bodySize > kept ? make("p", {}, `The first ${kept} of ${hit.bodySize} bytes were kept.`) : null,
  ];
}

function summary(hit) {
  const rows = [
    ["Time", `${dateTimeText(hit.time)}${hit.gap === null ? "" : `, ${spanText(hit.gap)} after the hit before`}`],
    ["Kind", hit.kind],
    ["Number", hit.number === undefined ? "none" : make("span", {}, `${hit.number} `, ...marksOf(hit))],
    ["Answer", make("span", {}, make("b", {class: `status ${outcomeClass(hit)}`}, statusText(hit)),
      hit.elapsed ? ` after ${spanText(hit.elapsed)}` : "", hit.rule ? ` by the rule “${hit.rule}”` : "")],
  ];
  if (hit.repeats !== undefined) rows.push(["Again", `the same number as hit ${hit.repeats}`]);
  if (hit.source) rows.push(["Read from", hit.source]);
  return make("dl", {}, ...rows.flatMap(([name, value]) =>
    [make("dt", {}, name), make("dd", {}, value)]));
}

async function copyAsCurl(hit) {
  const answer = await fetch(`api/export?format=curl&hits=${hit.sequence}`);
  copy(await answer.text());
}

/// Fills the pane with the hit; the actions are {close, pin, compare, isCompared}.
export function showDetail(hit, actions) {
  const pane = byId("detail");
  const focused = [...pane.querySelectorAll("button")].indexOf(document.activeElement);
  const {origin, path, query, fragment} = urlParts(hit.url);
  pane.replaceChildren(...[
    make("div", {class: "pane-head"},
      make("h2", {}, `Hit ${hit.sequence} `, make("span", {class: `kind ${hit.kind}`}, hit.kind)),
      button(hit.pinned ? "★ Unpin" : "☆ Pin", () => actions.pin(hit), {"aria-keyshortcuts": "p"}),
      button(actions.isCompared ? "Compare with the other" : "Compare", () => actions.compare(hit),
        {"aria-keyshortcuts": "c"}),
      button("Copy as curl", () => copyAsCurl(hit)),
      button("✕", actions.close, {"aria-label": "Close", "aria-keyshortcuts": "Escape", class: "close"})),
    summary(hit),
    make("section", {"aria-label": "URL"},
      make("h3", {}, "URL ", button("Copy", () => copy(hit.url), {class: "small"})),
      make("p", {class: "address"}, make("b", {}, `${hit.method} `), make("span", {class: "origin"}, origin),
        path, fragment ? ` #${fragment}` : "")),
    pairsTable("Parameters", ["Name", "Value", "Raw"], parameterRows(parametersIn(query))),
    ...bodySections(hit),
    pairsTable("Header", ["Name", "Value"], hit.headers),
    rawText("URL as it came", hit.url),
  ].filter(Boolean));
  pane.hidden = false;
  if (focused >= 0) pane.querySelectorAll("button")[focused]?.focus();
}
