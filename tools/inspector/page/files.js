// Hits into files and back.

import {byId, openDialog, say} from "./dom.js";
import {ask} from "./live.js";

/// "1-5,9" for the hits of a view.
export function rangesOf(view) {
  const ranges = [];
  for (let i = view.length - 1; i >= 0; --i) {
    const {sequence} = view.at(i);
    const last = ranges.at(-1);
    if (last && last[1] === sequence - 1) last[1] = sequence;
    else ranges.push([sequence, sequence]);
  }
  return ranges.map(([from, to]) => from === to ? String(from) : `${from}-${to}`).join(",");
}

export function openExport(view) {
  byId("export-hits").value = rangesOf(view) || "0";
  byId("export-count").textContent = `The ${view.length} hits that are shown, as a file:`;
  openDialog("export-dialog");
}

async function importFile(file) {
  try {
    const {count} = JSON.parse(await ask("POST", `import?name=${encodeURIComponent(file.name)}`, file));
    say(`${count} hits read from ${file.name}.`);
  } catch (error) {
    say(`${file.name}: ${error.message}`);
  }
}

export function startFiles() {
  const chooser = byId("import-file");
  byId("import").addEventListener("click", () => chooser.click());
  chooser.addEventListener("change", async () => {
    for (const file of chooser.files) await importFile(file);
    chooser.value = "";
  });
  byId("export-form").addEventListener("submit", () => byId("export-dialog").close());
  document.addEventListener("dragover", event => event.preventDefault());
  document.addEventListener("drop", async event => {
    event.preventDefault();
    for (const file of event.dataTransfer.files) await importFile(file);
  });
}
