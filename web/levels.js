// Histogram of the frame, and the window of values that is shown.
import {change, state} from "./state.js";
import {make, short} from "./dom.js";

const panel = document.getElementById("panel-levels");
const chart = make("canvas", {className: "histogram", role: "img", "aria-label": "Histogram"});
const low = make("input", {type: "number", id: "level-low", step: "any"}), high = make("input", {type: "number", id: "level-high", step: "any"});
const lowSlider = make("input", {type: "range", "aria-label": "Black, slider"}), highSlider = make("input", {type: "range", "aria-label": "White, slider"});
const facts = make("p", {className: "summary"});
const automatic = make("button", {type: "button"}, "Automatic"), whole = make("button", {type: "button"}, "All values");
let head = null;

export function startLevels() {
  const set = (a, b) => change({low: a, high: Math.max(a, b)});
  for (const [input, isLow] of [[low, true], [lowSlider, true], [high, false], [highSlider, false]])
    input.addEventListener("input", () => {
      if (input.value === "" || !head?.window) return;
      const value = Number(input.value), [a, b] = head.window;
      set(isLow ? value : state.low ?? a, isLow ? state.high ?? b : value);
    });
  automatic.addEventListener("click", () => change({low: null, high: null}));
  whole.addEventListener("click", () => head?.histogram && set(head.histogram.least, head.histogram.greatest));
  panel.replaceChildren(
    make("h2", {}, "Levels"), facts, chart,
    make("div", {className: "setting"}, make("div", {className: "head"}, make("label", {for: "level-low"}, "Black"), low), lowSlider),
    make("div", {className: "setting"}, make("div", {className: "head"}, make("label", {for: "level-high"}, "White"), high), highSlider),
    make("div", {className: "actions"}, automatic, whole));
}

export function showLevels(picture) {
  head = picture;
  if (state.tab !== "levels" || !head.histogram) return;
  const {histogram} = head, [a, b] = head.window;
  facts.textContent = `${head.text}. Values from ${short(histogram.least)} to ${short(histogram.greatest)}${head.samples === "yuyv16" ? " (luma)" : ""}.`;
  for (const [input, slider, value] of [[low, lowSlider, a], [high, highSlider, b]]) {
    slider.min = Math.min(histogram.low, a);
    slider.max = Math.max(histogram.high, b);
    slider.step = (slider.max - slider.min) / 512 || 1;
    if (document.activeElement !== slider) slider.value = value;
    if (document.activeElement !== input) input.value = Number(value.toPrecision(6));
  }
  paint(histogram, a, b);
}

function paint({bins, low: from, high: to}, a, b) {
  const box = chart.getBoundingClientRect(), ratio = devicePixelRatio, style = getComputedStyle(chart);
  chart.width = Math.max(1, box.width * ratio);
  chart.height = Math.max(1, box.height * ratio);
  const context = chart.getContext("2d"), most = Math.max(1, ...bins.flat().map(Math.sqrt));
  const fills = bins.length === 3 ? ["rgba(226,60,60,.6)", "rgba(40,160,70,.6)", "rgba(60,110,240,.6)"] : [style.getPropertyValue("--accent")];
  bins.forEach((list, channel) => {
    context.fillStyle = fills[channel];
    const width = chart.width / list.length;
    list.forEach((count, i) => {
      const height = Math.sqrt(count) / most * chart.height;
      context.fillRect(i * width, chart.height - height, Math.max(1, width), height);
    });
  });
  context.fillStyle = style.getPropertyValue("--text");
  for (const value of [a, b]) {
    const x = (value - from) / (to - from || 1) * chart.width;
    context.fillRect(Math.min(chart.width - ratio, Math.max(0, x)), 0, ratio, chart.height);
  }
}
