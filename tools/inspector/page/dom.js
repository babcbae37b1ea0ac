// Makes elements. What a hit contains gets into the page here alone, and only as text.

export const byId = id => document.getElementById(id);

/// make("button", {type: "button", class: "small", onclick: f}, "Text", element): properties that
/// begin with "on" are listeners, all others attributes; false and null leave one out.
export function make(tag, attributes = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(attributes)) {
    if (value === false || value === null || value === undefined) continue;
    if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
    else element.setAttribute(name, value === true ? "" : value);
  }
  element.append(...children.filter(child => child !== null && child !== undefined));
  return element;
}

export const button = (text, onclick, attributes = {}) =>
  make("button", {type: "button", onclick, ...attributes}, text);

// What is the same already is not set again: the page would be laid out for it.

export function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

export function setAttribute(element, name, value) {
  if (element.getAttribute(name) !== value) element.setAttribute(name, value);
}

export function say(text) {
  byId("message").textContent = text;
}

export async function copy(text) {
  try {
    await navigator.clipboard.writeText(text);
    say("Copied.");
  } catch {
    say("The browser does not allow to copy.");
  }
}

export function openDialog(id) {
  const dialog = byId(id);
  if (!dialog.open) dialog.showModal();
  return dialog;
}
