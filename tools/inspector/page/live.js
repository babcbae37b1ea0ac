// What the inspector tells the page, as it happens.

import {byId} from "./dom.js";

/// The listeners are {state, rules, taken, hits}, each called with what came.
export function startLive(listeners) {
  const source = new EventSource("api/live");
  for (const [name, listener] of Object.entries(listeners)) {
    source.addEventListener(name, event => listener(JSON.parse(event.data)));
  }
  const show = isConnected => {
    const dot = byId("connection");
    dot.classList.toggle("on", isConnected);
    dot.setAttribute("aria-label", isConnected ? "Connected" : "Not connected");
  };
  source.addEventListener("open", () => show(true));
  source.addEventListener("error", () => show(false));
}

/// Answers the text; throws an Error with what the inspector says is wrong.
export async function ask(method, path, body) {
  const answer = await fetch(`api/${path}`, {method, body}).catch(() => {
    throw new Error("The inspector does not answer.");
  });
  const text = await answer.text();
  if (!answer.ok) throw new Error(text);
  return text;
}
