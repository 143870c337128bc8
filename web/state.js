// What is shown, kept in the address so that a reload shows the same.

const defaults = {
  step: 0, kind: "picture", compare: "single", tuned: 0, tab: "settings", zoom: 0, x: 0.5, y: 0.5,
  low: null, high: null, overlays: "corners,lines,regions,matches,outline", theme: "", wire: 0, colours: 1, flat: 0,
  normals: 0,
};

const numbers = new Set(["step", "tuned", "zoom", "x", "y", "low", "high", "wire", "colours", "flat", "normals"]);

export const state = {...defaults};
const listeners = [];
let timer = 0;

function read() {
  const given = new URLSearchParams(location.hash.slice(1));
  for (const key of Object.keys(defaults)) {
    if (!given.has(key)) {
      state[key] = defaults[key];
    } else if (numbers.has(key)) {
      const number = Number(given.get(key));
      state[key] = Number.isFinite(number) ? number : defaults[key];
    } else {
      state[key] = given.get(key);
    }
  }
}

function write() {
  timer = 0;
  const kept = new URLSearchParams();
  for (const [key, value] of Object.entries(state)) {
    if (value === defaults[key] || value === null) continue;
    kept.set(key, typeof value === "number" ? String(Math.round(value * 1e5) / 1e5) : value);
  }
  const hash = kept.toString();
  // The token has become a cookie: it leaves the address.
  history.replaceState(null, "", location.pathname + (hash ? "#" + hash : ""));
}

/** Calls `listener(changed keys)` after every change. */
export function onState(listener) {
  listeners.push(listener);
}

export function change(values) {
  const changed = new Set();
  for (const [key, value] of Object.entries(values))
    if (state[key] !== value) {
      state[key] = value;
      changed.add(key);
    }
  if (!changed.size) return;
  if (!timer) timer = setTimeout(write, 150);
  for (const listener of listeners) listener(changed);
}

read();
write();
addEventListener("hashchange", () => {
  const before = {...state};
  read();
  const changed = new Set(Object.keys(state).filter((key) => state[key] !== before[key]));
  if (changed.size) for (const listener of listeners) listener(changed);
});
addEventListener("pagehide", () => { if (timer) write(); });
