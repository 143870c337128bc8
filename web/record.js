// The record as a tree. Branches ask for their children when they are opened, large ones in pages.
import {state} from "./state.js";
import {make} from "./dom.js";

const panel = document.getElementById("panel-record");
const tree = make("div", {className: "tree"}), note = make("p", {className: "summary"});
const live = make("input", {type: "checkbox", id: "record-live"});
let connection, page, waiting = [], shown = 0;

// Pages of the record are asked for one at a time, in one slot.
function ask(path, first, then) {
  waiting.push({path, first, then});
  if (waiting.length === 1) askNext();
}

function askNext() {
  if (!waiting.length) return;
  const {path, first} = waiting[0];
  connection.ask("record", "record", {step: state.step, tuned: Boolean(state.tuned && page.isTuning()), path, first, after: 0});
}

function row(child, path) {
  const own = [...path, child.key];
  const value = make("span", {className: "value"}, child.value ?? "");
  const kind = make("span", {className: "kind"}, [child.kind, child.elements, child.shape].filter(Boolean).join(" · "));
  if (!child.open) return make("div", {className: "row"}, make("span", {className: "key"}, child.key), kind, value);
  const children = make("div", {className: "children"});
  const branch = make("details", {}, make("summary", {}, make("span", {className: "key"}, child.key), kind), children);
  branch.addEventListener("toggle", () => { if (branch.open && !children.childElementCount) fill(children, own, 0); });
  return branch;
}

function fill(children, path, first) {
  ask(path, first, (found) => {
    children.querySelector(":scope > .more")?.remove();
    if (found.error) return children.append(make("p", {className: "summary"}, found.error));
    children.append(...found.children.map((child) => row(child, path)));
    const next = found.first + found.children.length;
    if (next >= found.count) return;
    const more = make("button", {type: "button", className: "more"}, `${next} of ${found.count}, show more`);
    more.addEventListener("click", () => fill(children, path, next));
    children.append(more);
  });
}

export function startRecord(to, about) {
  connection = to;
  page = about;
  const renew = make("button", {type: "button"}, "Newest record");
  renew.addEventListener("click", () => showRecord());
  panel.replaceChildren(make("h2", {}, "Record"), note, make("div", {className: "actions"}, renew, make("label", {for: "record-live"}, live, " follow")), tree);
  connection.on("record", (head) => {
    const request = waiting.shift();
    shown = head.version ?? shown;
    if (request && !head.error) {
      note.textContent = `After ${page.labelOf(head.step)}, frame ${head.frame}.`;
      request.then(head.page);
    }
    askNext();
  });
  setInterval(() => { if (live.checked && state.tab === "record" && !tree.querySelector("details[open]")) showRecord(); }, 1000);
}

export function showRecord() {
  if (state.tab !== "record" || !connection) return;
  waiting = [];
  const fresh = make("div", {});
  tree.replaceChildren(fresh);
  fill(fresh, [], 0);
}
