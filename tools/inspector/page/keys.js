// The keyboard, and the choice of light or dark.

import {byId} from "./dom.js";

const isWriting = element => element.closest("input, select, textarea, dialog") !== null;

/// Calls what the key is for. `actions` are functions by their key, as in event.key; a key that is for
/// the list only counts while that has the focus.
export function startKeys(actions, listActions) {
  document.addEventListener("keydown", event => {
    if (event.ctrlKey || event.altKey || event.metaKey || document.querySelector("dialog[open]")) return;
    const inList = byId("list").contains(event.target);
    const isElsewhere = event.target === document.body || byId("detail").contains(event.target);
    if (isWriting(event.target)) {
      if (event.key === "Escape") byId("list").focus();
      return;
    }
    const action = (inList || isElsewhere ? listActions[event.key] : undefined) ?? actions[event.key];
    // In the pane the keys that scroll it are its own, and a button is pressed by Space and Enter.
    const isItsOwn = !inList && event.target !== document.body &&
      [" ", "Enter", "ArrowUp", "ArrowDown", "Home", "End", "PageUp", "PageDown"].includes(event.key);
    if (action === undefined || isItsOwn) return;
    event.preventDefault();
    action();
  });
}

const kThemes = {auto: "◐ Auto", light: "☀ Light", dark: "☾ Dark"};

export function startTheme(onChange) {
  const names = Object.keys(kThemes);
  const toggle = byId("theme");
  const show = theme => {
    document.documentElement.dataset.theme = theme;
    toggle.textContent = kThemes[theme];
    toggle.setAttribute("aria-label", `Colours: ${theme}`);
    onChange();
  };
  const stored = localStorage.getItem("theme");
  show(names.includes(stored) ? stored : "auto");
  toggle.addEventListener("click", () => {
    const next = names[(names.indexOf(document.documentElement.dataset.theme) + 1) % names.length];
    localStorage.setItem("theme", next);
    show(next);
  });
  matchMedia("(prefers-color-scheme: dark)").addEventListener("change", onChange);
}
