// Takes the texts of a hit apart.

export function decoded(text) {
  const spaced = text.replaceAll("+", " ");
  if (!spaced.includes("%")) return spaced;
  try {
    return decodeURIComponent(spaced);
  } catch {
    return spaced;  // no UTF-8: the raw text is shown beside it
  }
}

/// [{name, value, raw}]
export function parametersIn(query) {
  return query.split("&").filter(part => part !== "").map(raw => {
    const sign = raw.indexOf("=");
    return {
      name: decoded(sign < 0 ? raw : raw.slice(0, sign)),
      value: sign < 0 ? "" : decoded(raw.slice(sign + 1)),
      raw,
    };
  });
}

export function urlParts(url) {
  const [, origin, path, query = "", fragment = ""] =
    /^([a-z][a-z0-9+.-]*:\/\/[^/?#]*)?([^?#]*)(?:\?([^#]*))?(?:#([^]*))?/i.exec(url);
  return {origin: origin ?? "", path: path || "/", query, fragment};
}

const kLongestSummary = 300;

/// What the list shows: the path and the parameters, or the form in the body.
export function summaryOf(hit) {
  const {path, query} = urlParts(hit.url);
  const form = bodyKind(hit) === "form" ? hit.body : "";
  const all = [query, form].filter(text => text !== "").join(" · ");
  return {path: decodedPath(path).slice(0, kLongestSummary), query: decoded(all.slice(0, kLongestSummary))};
}

function decodedPath(path) {
  try {
    return decodeURIComponent(path);
  } catch {
    return path;
  }
}

export function bodyKind(hit) {
  if (hit.body64 !== undefined) return "bytes";
  const body = hit.body ?? "";
  if (body === "") return "none";
  if (/^\s*[[{]/.test(body)) return "json";
  return body.includes("=") && !/[\n<{]/.test(body) ? "form" : "text";
}

/// [{name, value, raw}] of a body that is a form or JSON, of which each leaf is one; null for others.
export function bodyParameters(hit) {
  const kind = bodyKind(hit);
  if (kind === "form") return parametersIn(hit.body);
  if (kind !== "json") return null;
  try {
    return leavesOf(JSON.parse(hit.body), "");
  } catch {
    return null;
  }
}

const kMostLeaves = 2000;

function leavesOf(value, path, leaves = [], depth = 0) {
  if (leaves.length >= kMostLeaves) return leaves;
  if (value === null || typeof value !== "object" || depth > 50) {
    leaves.push({name: path || "(all)", value: String(depth > 50 ? "…" : value), raw: JSON.stringify(value)});
    return leaves;
  }
  const isList = Array.isArray(value);
  for (const [key, member] of Object.entries(value)) {
    leavesOf(member, isList ? `${path}[${key}]` : path ? `${path}.${key}` : key, leaves, depth + 1);
  }
  return leaves;
}

export const allParameters = hit =>
  [...parametersIn(urlParts(hit.url).query), ...(bodyParameters(hit) ?? [])];

/// "ok", "error", "lost" or "waiting"
export function outcomeClass(hit) {
  if (hit.outcome === "waiting") return "waiting";
  if (hit.outcome !== "answered") return "lost";
  return hit.status >= 400 ? "error" : "ok";
}

export function statusText(hit) {
  if (hit.outcome === "answered") return String(hit.status);
  return hit.status ? `${hit.status} ${hit.outcome}` : hit.outcome;
}

const two = number => String(number).padStart(2, "0");

export function timeText(time) {
  const date = new Date(time);
  return `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}.` +
    String(date.getMilliseconds()).padStart(3, "0");
}

export function dateTimeText(time) {
  const date = new Date(time);
  return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ${timeText(time)}`;
}

export function spanText(milliseconds) {
  if (milliseconds === null) return "";
  if (milliseconds < 1000) return `${milliseconds} ms`;
  if (milliseconds < 60_000) return `${(milliseconds / 1000).toFixed(1)} s`;
  if (milliseconds < 3_600_000) return `${(milliseconds / 60_000).toFixed(1)} min`;
  return `${(milliseconds / 3_600_000).toFixed(1)} h`;
}
