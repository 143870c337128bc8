// Sliders for the settings of the selected step, and what becomes of a trial.
import {state} from "./state.js";
import {make, short} from "./dom.js";

const panel = document.getElementById("panel-settings");
let connection, steps = [], canTune = false, controls = new Map(), sent = new Map(), shownStep = -1;
const say = make("p", {className: "say", role: "status"});

/** Least and greatest value of a slider: those of the table, else what is usual around default and value. */
function rangeOf(setting) {
  const around = Math.max(Math.abs(setting.default ?? 0), Math.abs(setting.value ?? 0), 1);
  const bounded = (limit) => limit !== undefined && Math.abs(limit) < 1e6;
  const low = bounded(setting.min) ? setting.min : (setting.default ?? 0) < 0 ? -2 * around : 0;
  const high = bounded(setting.max) ? setting.max : low + 4 * around;
  const isInt = setting.kind === "Int";
  return [low, high, isInt ? 1 : Number(((high - low) / 1000).toPrecision(1))];
}

function makeControl(setting, step, index) {
  const id = `setting-${index}`, name = setting.path.split(".").pop();
  const unit = setting.unit ? make("span", {className: "unit"}, setting.unit) : null;
  const doc = make("p", {className: "doc", id: `${id}-doc`}, setting.doc);
  const label = make("label", {for: id, title: setting.path}, name);
  if (setting.fixed) {
    const value = make("output", {id, className: "fixed", title: `Fixed: ${setting.fixed}`}, String(setting.value ?? "not set"));
    return make("div", {className: "setting fixed"}, make("div", {className: "head"}, label, value, unit), doc);
  }
  const [low, high, fine] = rangeOf(setting);
  const slider = make("input", {type: "range", min: low, max: high, step: fine, "aria-label": `${setting.path}, slider`, "aria-describedby": `${id}-doc`});
  const number = make("input", {type: "number", id, step: setting.kind === "Int" ? 1 : "any", "aria-describedby": `${id}-doc`});
  if (setting.min !== undefined) number.min = setting.min;
  if (setting.max !== undefined) number.max = setting.max;
  const reset = make("button", {type: "button", className: "reset", title: "As before the trial", "aria-label": `${name} as before the trial`}, "↺");
  const send = (value) => {
    sent.set(setting.path, value);
    performance.mark("set");
    connection.send({set: setting.path, step, value});
  };
  slider.addEventListener("input", () => {
    number.value = slider.value;
    send(Number(slider.value));
  });
  number.addEventListener("change", () => {
    if (number.value === "" || !number.checkValidity()) return number.reportValidity();
    slider.value = number.value;
    send(Number(number.value));
  });
  reset.addEventListener("click", () => connection.send({set: setting.path, step, value: null}));
  const show = (value, isChanged) => {
    reset.hidden = !isChanged;
    row.classList.toggle("changed", isChanged);
    if (value === null || value === undefined) return;
    if (document.activeElement !== slider) slider.value = value;
    if (document.activeElement !== number) number.value = value;
  };
  const row = make("div", {className: "setting"}, make("div", {className: "head"}, label, number, unit, reset), slider, doc);
  controls.set(setting.path, {show, setting});
  show(setting.value, false);
  return row;
}

function actions() {
  const act = (text, title, run, className = "") => {
    const button = make("button", {type: "button", title, className}, text);
    button.addEventListener("click", run);
    return button;
  };
  const apply = act("Apply", "The run takes these settings from the next frame on", () => connection.send({do: "apply"}), "primary");
  const discard = act("Discard", "Back to the settings of the run", () => connection.send({do: "discard"}));
  const hold = act("Newest frame", "Try on the newest frame of the run", () => connection.send({do: "hold"}));
  const copy = act("Copy command", "The pipeline with these settings, as a command", () => { wanted = "command"; connection.send({do: "export"}); });
  const save = act("Save pipeline", "The pipeline with these settings, as a JSON file", () => { wanted = "json"; connection.send({do: "export"}); });
  return {element: make("div", {className: "actions"}, apply, discard, hold, copy, save), apply, discard, hold};
}

let wanted = "", buttons = null;

async function exported(done) {
  if (wanted === "command") {
    try {
      await navigator.clipboard.writeText(done.command);
      say.textContent = "The command is in the clipboard.";
    } catch {
      say.replaceChildren("Copy this: ", make("code", {}, done.command));
    }
  } else {
    const link = make("a", {href: URL.createObjectURL(new Blob([done.json], {type: "application/json"})), download: "pipeline.json"});
    link.click();
    setTimeout(() => URL.revokeObjectURL(link.href), 1000);
    say.textContent = "The pipeline is among your downloads.";
  }
}

export function startSettings(to, hello) {
  connection = to;
  steps = hello.steps;
  canTune = Boolean(hello.canTune);
  connection.on("reply", (head) => {
    if (head.error) say.textContent = head.error;
    else if (head.done?.command) exported(head.done);
    else say.textContent = "";
  });
  showSettings(true);
}

export function showSettings(anew = false) {
  const step = steps[state.step];
  if (!step || (shownStep === state.step && !anew)) return;
  shownStep = state.step;
  controls = new Map();
  const tunable = step.settings.filter((setting) => !setting.fixed), fixed = step.settings.filter((setting) => setting.fixed);
  buttons = canTune ? actions() : null;
  panel.replaceChildren(
    make("h2", {}, step.kind, step.name ? make("i", {}, ` ${step.name}`) : ""),
    make("p", {className: "summary"}, step.summary),
    ...tunable.map((setting, index) => makeControl(setting, state.step, index)),
    ...(buttons ? [buttons.element, say] : []),
    ...(fixed.length ? [make("details", {open: !tunable.length}, make("summary", {}, tunable.length ? "Fixed settings" : "Settings (fixed)"),
      ...fixed.map((setting, index) => makeControl(setting, state.step, tunable.length + index)))] : []));
}

export function showTuning(status) {
  const changed = status.tuning?.changed ?? [];
  const own = new Map(changed.filter(({step}) => step === state.step).map((change) => [change.path, change]));
  for (const [path, {show, setting}] of controls) {
    const change = own.get(path);
    if (change) {
      setting.before = change.before;
      show(change.value, true);
    } else {
      if (setting.isChanged) setting.value = status.tuning?.applied ? setting.tried : setting.value;
      show(setting.value, false);
    }
    setting.isChanged = Boolean(change);
  }
  if (buttons) {
    buttons.apply.disabled = !changed.length || status.state === "ended" || status.state === "closed";
    buttons.discard.disabled = !changed.length;
    buttons.hold.disabled = !changed.length || status.state === "ended";
  }
}
