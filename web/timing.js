// Strip charts: milliseconds of every step, and counts of what was found.
import {state} from "./state.js";
import {make, short} from "./dom.js";

const panel = document.getElementById("panel-timing");
const times = make("canvas", {className: "strip", role: "img", "aria-label": "Milliseconds a frame of every step"});
const counts = make("canvas", {className: "strip", role: "img", "aria-label": "Counts"});
const timeKey = make("ul", {className: "key"}), countKey = make("ul", {className: "key"}), messages = make("ul", {className: "messages"});
const samples = [], kMax = 300;
const hues = ["#1f9e89", "#e07b39", "#7a6ff0", "#d6478b", "#3b8ee0", "#a3a81a", "#b05cc4", "#6b7f8c"];
let steps = [], messageKey = "";

export function startTiming(hello) {
  steps = hello.steps;
  panel.replaceChildren(make("h2", {}, "Time per frame"), times, timeKey, make("h2", {}, "Found"), counts, countKey,
    make("h2", {}, "Messages"), messages);
}

export function addSample(status) {
  const key = JSON.stringify(status.messages ?? []);
  if (key !== messageKey) {
    messageKey = key;
    messages.replaceChildren(...(status.messages ?? []).map(({level, text, step}) =>
      make("li", {className: level}, step === undefined || !steps[step] ? "" : make("b", {}, `${steps[step].kind}: `), text)));
  }
  if (status.state !== "running" && samples.length && samples[samples.length - 1].frame === status.frame) return showTiming();
  samples.push({frame: status.frame, ms: status.steps.map((step) => step.ms ?? (status.state === "ended" ? step.mean : undefined)), counts: Object.assign({}, ...status.steps.map((step) => step.counts ?? {}))});
  if (samples.length > kMax) samples.shift();
  showTiming();
}

export function showTiming() {
  if (state.tab !== "timing") return;
  paint(times, timeKey, steps.map((step, i) => ({name: step.kind, unit: " ms", values: samples.map((sample) => sample.ms[i])})));
  const names = [...new Set(samples.flatMap((sample) => Object.keys(sample.counts)))].filter((name) => name !== "outline");
  paint(counts, countKey, names.map((name) => ({name, unit: "", values: samples.map((sample) => sample.counts[name])})));
}

function paint(canvas, key, series) {
  const box = canvas.getBoundingClientRect(), style = getComputedStyle(canvas);
  canvas.width = Math.max(1, box.width * devicePixelRatio);
  canvas.height = Math.max(1, box.height * devicePixelRatio);
  const context = canvas.getContext("2d"), {width, height} = canvas, top = 14 * devicePixelRatio;
  const most = Math.max(1e-9, ...series.flatMap(({values}) => values.filter((value) => value !== undefined)));
  context.strokeStyle = style.getPropertyValue("--line");
  context.beginPath();
  for (const share of [0, 0.5, 1]) {
    const y = Math.round(top + (height - top - 1) * share) + 0.5;
    context.moveTo(0, y);
    context.lineTo(width, y);
  }
  context.stroke();
  context.fillStyle = style.getPropertyValue("--muted");
  context.font = `${11 * devicePixelRatio}px system-ui, sans-serif`;
  if (series.some(({values}) => values.some((value) => value !== undefined))) context.fillText(`${short(most)}${series[0].unit}`, 0, top - 3 * devicePixelRatio);
  context.lineWidth = 1.6 * devicePixelRatio;
  series.forEach(({values}, i) => {
    context.strokeStyle = hues[i % hues.length];
    context.beginPath();
    values.forEach((value, at) => {
      if (value === undefined) return;
      context[at === 0 || values[at - 1] === undefined ? "moveTo" : "lineTo"](width - (values.length - 1 - at) * width / kMax, top + (height - top - 1) * (1 - value / most));
    });
    context.stroke();
  });
  key.replaceChildren(...series.map(({name, unit, values}, i) => {
    const dot = make("span", {className: "dot", "aria-hidden": "true"});
    dot.style.background = hues[i % hues.length];
    const last = values.findLast((value) => value !== undefined);
    return make("li", {}, dot, `${name} ${last === undefined ? "–" : short(last)}${last === undefined ? "" : unit}`);
  }));
}
