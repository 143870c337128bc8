// The large picture: zoom, pan, comparison, overlays, values under the pointer.
import {change, state} from "./state.js";
import {decode} from "./pixels.js";
import {drawOverlays} from "./overlays.js";

const canvas = document.getElementById("picture"), context = canvas.getContext("2d");
const byId = (id) => document.getElementById(id);
const panes = {a: {slot: "a"}, b: {slot: "b"}};
let shownOverlays = null; // not one of the panes: pictures are asked for each of these
const pausedStates = new Set(["paused", "ended", "recording", "closed"]);
let connection, page, blinkShowsB = false, frameRequest = 0, wantTimer = 0, pointer = null;

/** Steps whose results are shown: the selected one, and for comparison the one before. */
const stepOf = (pane) => pane === panes.a ? state.step : Math.max(0, state.step - 1);
const compares = () => state.compare !== "single" && state.step > 0 && page.mode === "pipeline";
const isActive = (pane) => pane === panes.a || compares();
const frameSize = () => panes.a.head?.width ? [panes.a.head.width, panes.a.head.height] : null;

function paneWidth() {
  return compares() && state.compare === "side" ? canvas.width / 2 : canvas.width;
}

/** Device pixels to a pixel of the frame; 0 in the state stands for as large as fits. */
function scale() {
  const size = frameSize();
  if (!size) return 1;
  if (state.zoom > 0) return state.zoom * devicePixelRatio;
  return Math.min(paneWidth() / size[0], canvas.height / size[1], 16);
}

/** Where the frame's origin lies in a pane, device pixels. */
function origin() {
  const size = frameSize() ?? [1, 1], s = scale();
  const place = (whole, length, share) => {
    const shown = length * s;
    return Math.round(shown <= whole ? (whole - shown) / 2 : Math.min(0, Math.max(whole - shown, whole / 2 - share * shown)));
  };
  return [place(paneWidth(), size[0], state.x), place(canvas.height, size[1], state.y)];
}

function visibleRegion() {
  const size = frameSize();
  if (!size) return [0, 0, 0, 0];
  const [left, top] = origin(), s = scale();
  const x = Math.max(0, Math.floor(-left / s)), y = Math.max(0, Math.floor(-top / s));
  return [x, y, Math.min(size[0] - x, Math.ceil(paneWidth() / s) + 2), Math.min(size[1] - y, Math.ceil(canvas.height / s) + 2)];
}

function requestOf(pane) {
  const region = visibleRegion(), pixels = region[2] * region[3];
  const isStill = pausedStates.has(page.status?.state) || (state.tuned && page.isTuning());
  const request = {
    step: stepOf(pane), tuned: Boolean(state.tuned && page.isTuning()), region,
    width: Math.max(1, Math.round(paneWidth())), height: Math.max(1, canvas.height),
    exact: Boolean(pixels) && scale() >= 1 && (isStill || pixels < 350000),
    histogram: pane === panes.a && state.tab === "levels",
  };
  if (state.low !== null && state.high !== null && pane === panes.a) request.window = [state.low, state.high];
  return request;
}

function ask(pane) {
  if (!pane || !isActive(pane) || document.hidden || state.kind !== "picture") return;
  const request = requestOf(pane), key = JSON.stringify(request);
  if (pane.key !== key) pane.version = 0;
  pane.key = key;
  connection.ask(pane.slot, "picture", {...request, after: pane.version ?? 0});
}

/** Asks anew after what is shown has changed. */
export function refresh() {
  if (wantTimer) return;
  wantTimer = setTimeout(() => {
    wantTimer = 0;
    for (const pane of Object.values(panes)) ask(pane);
    connection.ask("overlays", "overlays", {step: state.step, tuned: Boolean(state.tuned && page.isTuning()), after: 0});
  }, 15);
  draw();
}

async function receive(pane, head, buffer, offset) {
  if (head.error) return showEmpty(head.error);
  pane.version = head.version;
  const wasUnknown = !frameSize();
  if (head.width) {
    try {
      const bitmap = await decode(head, buffer, offset);
      pane.bitmap?.close();
      pane.bitmap = bitmap;
    } catch (error) {
      console.error(error);
    }
    const before = frameSize();
    pane.head = head;
    if (pane === panes.a && before && (before[0] !== head.width || before[1] !== head.height)) refresh();
  } else {
    pane.head = head;
    pane.bitmap = null;
  }
  if (pane === panes.a) {
    page.onPicture(head);
    showEmpty(head.width ? "" : "This step passes no frame on. Its record is under “Record”.");
    canvas.dataset.version = head.version;
    canvas.dataset.frame = head.frame;
    canvas.dataset.step = head.step;
    canvas.dataset.tuned = head.tuned ? 1 : 0;
    canvas.dataset.format = head.format ?? "";
    canvas.setAttribute("aria-label", `Frame ${head.frame} after ${page.labelOf(head.step)}: ${head.text ?? "none"}`);
  }
  draw();
  if (wasUnknown && frameSize()) refresh(); else ask(pane);
  if (pointer) askValue();
}

function showEmpty(text) {
  if (state.kind !== "picture") return;
  byId("empty").textContent = text;
  byId("empty").hidden = !text;
}

export function draw() {
  if (state.kind !== "picture") return; // the line of facts is about the model
  if (!frameRequest) frameRequest = requestAnimationFrame(paint);
}

function paintPane(pane, left) {
  if (!pane.bitmap || !pane.head?.region) return;
  const s = scale(), [ox, oy] = origin(), [x, y, width, height] = pane.head.region;
  context.save();
  context.beginPath();
  context.rect(left, 0, paneWidth(), canvas.height);
  context.clip();
  context.imageSmoothingEnabled = s < 1 || pane.head.format === "jpeg";
  context.drawImage(pane.bitmap, left + ox + x * s, oy + y * s, width * s, height * s);
  if (pane === panes.a && shownOverlays) drawOverlays(context, shownOverlays, {left: left + ox, top: oy, scale: s}, page.overlaysOn());
  context.restore();
}

function paint() {
  frameRequest = 0;
  context.clearRect(0, 0, canvas.width, canvas.height);
  if (compares() && state.compare === "side") {
    paintPane(panes.b, 0);
    paintPane(panes.a, canvas.width / 2);
    context.fillStyle = getComputedStyle(canvas).getPropertyValue("--line");
    context.fillRect(canvas.width / 2 - 1, 0, 2, canvas.height);
  } else {
    paintPane(compares() && state.compare === "blink" && blinkShowsB ? panes.b : panes.a, 0);
  }
  byId("zoom").textContent = `${Math.round(scale() / devicePixelRatio * 100)} %`;
  const shows = compares() && state.compare === "blink" && blinkShowsB ? panes.b : panes.a;
  byId("shown").textContent = shows.head ? `${page.labelOf(shows.head.step)}, ${page.mode === "recording" ? "record" : "frame"} ${shows.head.frame}${shows.head.tuned ? ", trial" : ""}` : "";
  byId("size").textContent = shows.head?.text ?? "";
}

/** Zooms by a factor about a point of the canvas, by default its middle. */
export function zoomBy(factor, at = [paneWidth() / 2, canvas.height / 2]) {
  const size = frameSize();
  if (!size) return;
  const before = scale(), [ox, oy] = origin();
  const after = Math.min(64, Math.max(0.02, before * factor / devicePixelRatio)) * devicePixelRatio;
  const x = (at[0] - ox) / before, y = (at[1] - oy) / before;
  change({
    zoom: after / devicePixelRatio,
    x: Math.min(1, Math.max(0, (x - (at[0] - paneWidth() / 2) / after) / size[0])),
    y: Math.min(1, Math.max(0, (y - (at[1] - canvas.height / 2) / after) / size[1])),
  });
}

export function moveBy(dx, dy) {
  const size = frameSize();
  if (!size) return;
  const s = scale(), clamp = (v) => Math.min(1, Math.max(0, v));
  change({x: clamp(state.x - dx / s / size[0]), y: clamp(state.y - dy / s / size[1])});
}

function place(event) {
  const box = canvas.getBoundingClientRect();
  return [(event.clientX - box.left) * devicePixelRatio, (event.clientY - box.top) * devicePixelRatio];
}

function pixelAt([x, y]) {
  const [ox, oy] = origin(), s = scale();
  const inPane = compares() && state.compare === "side" && x >= canvas.width / 2 ? x - canvas.width / 2 : x;
  return [Math.floor((inPane - ox) / s), Math.floor((y - oy) / s)];
}

function askValue() {
  const [x, y] = pixelAt(pointer), size = frameSize();
  if (!size || x < 0 || y < 0 || x >= size[0] || y >= size[1]) {
    byId("value").textContent = "";
    return;
  }
  connection.ask("value", "value", {step: state.step, tuned: Boolean(state.tuned && page.isTuning()), x, y});
}

function listen() {
  const held = new Map();
  let spread = 0;
  canvas.addEventListener("wheel", (event) => {
    event.preventDefault();
    zoomBy(Math.exp(-event.deltaY / 400), place(event));
  }, {passive: false});
  canvas.addEventListener("pointerdown", (event) => {
    canvas.setPointerCapture(event.pointerId);
    held.set(event.pointerId, place(event));
    spread = 0;
  });
  canvas.addEventListener("pointermove", (event) => {
    const to = place(event), from = held.get(event.pointerId);
    pointer = to;
    if (from) {
      held.set(event.pointerId, to);
      if (held.size === 1) moveBy(to[0] - from[0], to[1] - from[1]);
      if (held.size === 2) {
        const [a, b] = [...held.values()], now = Math.hypot(a[0] - b[0], a[1] - b[1]);
        if (spread) zoomBy(now / spread, [(a[0] + b[0]) / 2, (a[1] + b[1]) / 2]);
        spread = now;
      }
    } else {
      askValue();
    }
  });
  const release = (event) => { held.delete(event.pointerId); spread = 0; };
  canvas.addEventListener("pointerup", release);
  canvas.addEventListener("pointercancel", release);
  canvas.addEventListener("pointerleave", () => { pointer = null; byId("value").textContent = ""; });
  canvas.addEventListener("dblclick", () => change({zoom: 0, x: 0.5, y: 0.5}));
  canvas.addEventListener("keydown", (event) => {
    const moves = {ArrowLeft: [60, 0], ArrowRight: [-60, 0], ArrowUp: [0, 60], ArrowDown: [0, -60]};
    if (!moves[event.key]) return;
    event.preventDefault();
    moveBy(...moves[event.key]);
  });
  new ResizeObserver(() => {
    const box = canvas.parentElement.getBoundingClientRect();
    canvas.width = Math.max(1, Math.round(box.width * devicePixelRatio));
    canvas.height = Math.max(1, Math.round(box.height * devicePixelRatio));
    refresh();
  }).observe(canvas.parentElement);
  document.addEventListener("visibilitychange", () => { if (!document.hidden) refresh(); });
}

/** `page` tells what the stage has to know: status, isTuning(), labelOf(), overlaysOn(), onPicture(). */
export function startStage(to, about) {
  connection = to;
  page = about;
  for (const pane of Object.values(panes)) connection.on(pane.slot, (...answer) => receive(pane, ...answer));
  connection.on("overlays", (head, buffer, offset) => {
    if (head.error) return;
    shownOverlays = {...head, numbers: new Float32Array(buffer, offset)};
    page.onOverlays(head);
    draw();
    if (!document.hidden) connection.ask("overlays", "overlays", {step: state.step, tuned: Boolean(state.tuned && page.isTuning()), after: head.version});
  });
  connection.on("value", (head) => {
    byId("value").textContent = head.value ? `${head.x}, ${head.y}: ${head.value}` : "";
  });
  listen();
  setInterval(() => {
    if (!compares() || state.compare !== "blink") return;
    blinkShowsB = !blinkShowsB;
    draw();
  }, 500);
}

/** After another step was chosen, the picture before it is not shown for it. */
export function forget() {
  for (const pane of [panes.a, panes.b]) {
    pane.version = 0;
    pane.key = "";
  }
  shownOverlays = null;
}
