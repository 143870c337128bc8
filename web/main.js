// Puts the page together: what comes from the server, what is chosen, and the keys.
import {change, onState, state} from "./state.js";
import {Connection} from "./connection.js";
import {radioGroup, make, short} from "./dom.js";
import * as cards from "./cards.js";
import * as stage from "./stage.js";
import {addSample, showTiming, startTiming} from "./timing.js";
import {showLevels, startLevels} from "./levels.js";
import {showRecord, startRecord} from "./record.js";
import {showSettings, showTuning, startSettings} from "./settings.js";

const byId = (id) => document.getElementById(id);
const page = {
  mode: "", status: null, hello: null,
  isTuning: () => (page.status?.tuning?.changed.length ?? 0) > 0,
  labelOf: (step) => page.hello?.steps[step]?.kind ?? "",
  overlaysOn: () => (name) => state.overlays.split(",").includes(name),
  onPicture: showLevels,
  onOverlays: showOverlayChips,
};
const stateNames = {starting: "starting", running: "running", paused: "paused", ended: "ended", closed: "closed", recording: "recording", model: "model"};
let connection, playing = 0, modelModule = null, modelKey = "", wasTuning = false;

// Overlays.

const allOverlays = ["corners", "lines", "regions", "matches", "outline"];

function showOverlayChips(head) {
  const counts = head.overlays.counts ?? {}, more = new Set(head.overlays.more ?? []);
  byId("overlays").replaceChildren(...allOverlays.filter((name) => counts[name] !== undefined).map((name) => {
    const isOn = page.overlaysOn()(name);
    const text = name === "outline" ? "outline" : `${counts[name]} ${name}`;
    const chip = make("button", {type: "button", "aria-pressed": isOn, "data-overlay": name, title: more.has(name) ? "Not all of them are drawn" : ""}, text + (more.has(name) ? " …" : ""));
    chip.addEventListener("click", () => toggleOverlays([name]));
    return chip;
  }));
}

function toggleOverlays(names) {
  const on = new Set(state.overlays.split(",").filter(Boolean));
  const turnOff = names.some((name) => on.has(name));
  for (const name of names) if (turnOff) on.delete(name); else on.add(name);
  change({overlays: [...on].join(",")});
}

// The model.

async function askModel() {
  if (state.kind !== "model") return;
  const tuned = Boolean(state.tuned && page.isTuning()), key = `${state.step} ${tuned}`;
  if (modelKey !== key) {
    modelKey = key;
    askModel.version = 0;
  }
  connection.ask("model", "model", {step: state.step, tuned, after: askModel.version ?? 0});
}

async function receiveModel(head, buffer, offset) {
  if (head.error || state.kind !== "model") return;
  askModel.version = head.version;
  modelModule ??= await import("./model.js");
  byId("empty").hidden = Boolean(head.model.lists.positions);
  byId("empty").textContent = head.model.error ?? "The record holds no mesh and no points.";
  byId("size").textContent = head.model.lists.positions ? await modelModule.showModel(head, buffer, offset) : "";
  byId("shown").textContent = page.mode === "model" ? page.hello.title : `${page.labelOf(head.step)}, frame ${head.frame}`;
  if (page.mode !== "model") setTimeout(askModel, 300);
}

// What is chosen.

const showKind = radioGroup(byId("kinds"), ({kind}) => change({kind}));
const showCompare = radioGroup(byId("compare"), ({compare}) => change({compare}));
const showTrial = radioGroup(byId("trial"), ({tuned}) => change({tuned: Number(tuned)}));
const tabs = ["settings", "levels", "record", "timing"];

function showChoices() {
  showKind(({kind}) => kind === state.kind);
  showCompare(({compare}) => compare === state.compare);
  showTrial(({tuned}) => Number(tuned) === state.tuned);
  const isModel = state.kind === "model";
  byId("picture").hidden = isModel;
  byId("model").hidden = !isModel;
  byId("modelTools").hidden = !isModel;
  for (const element of document.querySelectorAll("#tools .picture")) element.hidden = isModel;
  if (page.mode !== "pipeline") byId("compare").hidden = true;
  for (const button of byId("modelTools").querySelectorAll("[aria-pressed]")) button.setAttribute("aria-pressed", Boolean(state[button.dataset.model]));
  for (const tab of tabs) {
    const isOpen = state.tab === tab, button = byId(`tab-${tab}`);
    button.setAttribute("aria-selected", isOpen);
    button.tabIndex = isOpen ? 0 : -1;
    byId(`panel-${tab}`).hidden = !isOpen;
  }
  document.documentElement.dataset.theme = state.theme;
}

onState((changed) => {
  if (!page.hello) return;
  showChoices();
  if (changed.has("step")) {
    cards.select();
    stage.forget();
    showSettings();
    if (page.status) showTuning(page.status);
  }
  if (changed.has("step") || changed.has("tab") || changed.has("tuned")) showRecord();
  if (changed.has("tab")) showTiming();
  if (changed.has("overlays")) for (const chip of byId("overlays").children) chip.setAttribute("aria-pressed", page.overlaysOn()(chip.dataset.overlay));
  if (changed.has("theme")) stage.draw();
  askModel();
  stage.refresh();
});

byId("tabs").addEventListener("click", (event) => {
  const tab = event.target.closest("[role=tab]");
  if (tab) change({tab: tab.id.slice(4)});
});
byId("tabs").addEventListener("keydown", (event) => {
  const step = {ArrowRight: 1, ArrowLeft: -1}[event.key];
  if (!step) return;
  const tab = tabs[(tabs.indexOf(state.tab) + step + tabs.length) % tabs.length];
  change({tab});
  byId(`tab-${tab}`).focus();
});
byId("modelTools").addEventListener("click", (event) => {
  const name = event.target.closest("button")?.dataset.model;
  if (name === "reset") modelModule?.resetView();
  else if (name) change({[name]: state[name] ? 0 : 1});
});

// Time.

function goTo(record) {
  const last = page.hello.records;
  connection.send({do: "seek", number: Math.min(last, Math.max(1, record))});
}

function runOrPause() {
  if (page.mode === "recording") {
    if (playing) clearInterval(playing);
    playing = playing ? 0 : setInterval(() => {
      if (page.status.frame >= page.hello.records) return runOrPause();
      goTo(page.status.frame + 1);
    }, 100);
    byId("run").textContent = playing ? "Pause" : "Play";
  } else {
    connection.send({do: page.status?.state === "paused" ? "run" : "pause"});
  }
}

function stepBy(count) {
  if (page.mode === "recording") goTo(page.status.frame + count);
  else if (count > 0) connection.send({do: "step"});
}

byId("run").addEventListener("click", runOrPause);
byId("step").addEventListener("click", () => stepBy(1));
byId("seek").querySelector("input").addEventListener("input", (event) => goTo(Number(event.target.value)));
byId("in").addEventListener("click", () => stage.zoomBy(1.4));
byId("out").addEventListener("click", () => stage.zoomBy(1 / 1.4));
byId("fit").addEventListener("click", () => change({zoom: 0, x: 0.5, y: 0.5}));
byId("one").addEventListener("click", () => change({zoom: 1}));
byId("help").addEventListener("click", () => byId("keys").showModal());

function turnTheme() {
  const isDark = state.theme ? state.theme === "dark" : matchMedia("(prefers-color-scheme: dark)").matches;
  change({theme: isDark ? "light" : "dark"});
}
byId("theme").addEventListener("click", turnTheme);

function chooseStep(by) {
  const step = Math.min(page.hello.steps.length - 1, Math.max(0, state.step + by));
  change({step});
}

const compareNext = {single: "side", side: "blink", blink: "single"};
const keys = {
  "[": () => chooseStep(-1), "]": () => chooseStep(1), " ": runOrPause, ".": () => stepBy(1), ",": () => stepBy(-1),
  "+": () => stage.zoomBy(1.4), "=": () => stage.zoomBy(1.4), "-": () => stage.zoomBy(1 / 1.4),
  "0": () => change({zoom: 0, x: 0.5, y: 0.5}), "1": () => change({zoom: 1}),
  c: () => change({compare: compareNext[state.compare] ?? "single"}), o: () => toggleOverlays(allOverlays),
  t: () => page.isTuning() && change({tuned: state.tuned ? 0 : 1}), d: turnTheme, "?": () => byId("keys").showModal(),
  s: () => change({tab: "settings"}), l: () => change({tab: "levels"}), r: () => change({tab: "record"}), m: () => change({tab: "timing"}),
};
addEventListener("keydown", (event) => {
  if (event.ctrlKey || event.metaKey || event.altKey || !page.hello || byId("keys").open) return;
  const at = event.target;
  if (at.matches?.("input[type=number], input[type=text], textarea, select")) return;
  if (event.key === " " && at.matches?.("button, summary, input, [role=radio]")) return;
  const action = keys[event.key];
  if (!action) return;
  event.preventDefault();
  action();
});

// What comes from the server.

function showStatus(status) {
  page.status = status;
  const name = stateNames[status.state] ?? status.state;
  const text = status.exit ? `ended, exit code ${status.exit}` : name;
  if (byId("state").textContent !== text) byId("state").textContent = text;
  byId("state").dataset.state = status.exit ? "failed" : status.state;
  byId("frame").textContent = page.mode === "model" ? ""
    : page.mode === "recording" ? `record ${status.frame} of ${status.frames}, ${status.event ?? "damaged"}`
      : `frame ${status.frame}${status.frames ? ` of ${status.frames}` : ""}`;
  byId("rate").textContent = status.state === "running" && status.rate ? `${short(status.rate)}/s` : "";
  const isOver = status.state === "ended" || status.state === "closed" || page.mode === "model";
  byId("run").disabled = byId("step").disabled = isOver;
  if (page.mode === "pipeline") byId("run").textContent = status.state === "paused" ? "Run" : "Pause";
  if (page.mode === "recording") byId("seek").querySelector("input").value = status.frame;
  cards.showStatus(status);
  showTuning(status);
  addSample(status);
  byId("kinds").hidden = !status.steps[state.step]?.model && state.kind !== "model";
  const isTuning = page.isTuning();
  byId("trial").hidden = !isTuning;
  if (isTuning !== wasTuning) {
    wasTuning = isTuning;
    change({tuned: isTuning ? 1 : 0});
    stage.refresh();
  }
  if (page.mode === "recording") showRecordOnce(status.frame);
  connection.ask("status", "status", {after: status.version});
}

let recordShown = 0;
function showRecordOnce(frame) {
  if (recordShown === frame) return;
  recordShown = frame;
  showRecord();
}

function start(hello) {
  page.hello = hello;
  page.mode = hello.mode;
  document.body.dataset.mode = hello.mode;
  byId("title").textContent = hello.title ?? "scansteps";
  document.title = `${hello.title ?? hello.steps.map(({kind}) => kind).join(" ! ")} – scansteps view`;
  if (state.step >= hello.steps.length) change({step: 0});
  if (hello.mode === "model") change({kind: "model"});
  if (hello.mode === "recording") {
    byId("seek").hidden = false;
    byId("seek").querySelector("input").max = hello.records;
    byId("run").textContent = "Play";
    byId("tab-settings").hidden = true;
    if (state.tab === "settings") change({tab: "record"});
  }
  byId("time").hidden = hello.mode === "model";
  byId("kinds").hidden = true;
  cards.showSteps(hello.steps, connection);
  startSettings(connection, hello);
  startTiming(hello);
  showChoices();
  showRecord();
  connection.ask("status", "status", {after: 0});
  stage.refresh();
  askModel();
}

connection = new Connection(() => {}, (event) => {
  byId("state").textContent = event.code === 1013 ? "too many viewers, trying again" : "the program has ended";
  byId("state").dataset.state = "lost";
  byId("run").disabled = byId("step").disabled = true;
});
connection.on("hello", start);
connection.on("status", showStatus);
connection.on("model", receiveModel);
stage.startStage(connection, page);
startLevels();
startRecord(connection, page);
showChoices();
