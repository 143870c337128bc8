// The chain as cards: one a step, with its newest frame, its time and what it has to say.
import {change, state} from "./state.js";
import {make, short} from "./dom.js";

const list = document.getElementById("cards");
let cards = [], connection, waiting = false, next = 0;

function makeCard(step, index) {
  const card = {
    thumb: make("canvas", {width: 192, height: 108, "aria-hidden": "true"}),
    time: make("span", {className: "time"}),
    share: make("span", {className: "share"}),
    frame: make("span", {className: "frame"}),
    counts: make("span", {className: "counts"}),
    marks: make("span", {className: "marks"}),
    notes: make("ul", {className: "notes", id: `notes-${index}`}),
    version: 0,
  };
  card.bar = make("span", {className: "bar", "aria-hidden": "true"}, card.share);
  card.button = make("button", {type: "button", className: "card", title: step.summary, "aria-describedby": `notes-${index}`, "data-step": index},
    make("span", {className: "thumb"}, card.thumb, card.marks),
    make("span", {className: "kind"}, make("b", {}, step.kind), step.name ? make("i", {}, step.name) : null, card.time),
    card.bar, card.frame, card.counts);
  card.button.addEventListener("click", () => change({step: index}));
  card.item = make("div", {className: "item"}, card.button, card.notes);
  return card;
}

export function showSteps(steps, to) {
  connection = to;
  cards = steps.map(makeCard);
  list.replaceChildren(...cards.map((card) => card.item));
  connection.on("thumb", receiveThumb);
  select();
  waiting = false;
  askThumb();
}

export function select() {
  cards.forEach((card, index) => card.button.setAttribute("aria-current", index === state.step ? "step" : "false"));
  cards[state.step]?.item.scrollIntoView({block: "nearest", inline: "nearest"});
}

// One thumbnail at a time, by turns; a step without news is left to the next turn.
function askThumb() {
  if (!cards.length || document.hidden) return setTimeout(askThumb, 500);
  waiting = true;
  const step = next;
  next = (next + 1) % cards.length;
  connection.ask("thumb", "picture", {step, after: cards[step].version, width: 192, height: 108});
  // A step that has nothing new must not hold up the others.
  clearTimeout(askThumb.timer);
  askThumb.timer = setTimeout(askThumb, 400);
}

async function receiveThumb(head, buffer, offset) {
  const card = cards[head.step];
  if (!card || head.error) return;
  card.version = head.version;
  const context = card.thumb.getContext("2d");
  if (head.format === "jpeg") {
    const bitmap = await createImageBitmap(new Blob([new Uint8Array(buffer, offset)], {type: "image/jpeg"}));
    const {width, height} = card.thumb, s = Math.min(width / bitmap.width, height / bitmap.height);
    context.clearRect(0, 0, width, height);
    context.drawImage(bitmap, (width - bitmap.width * s) / 2, (height - bitmap.height * s) / 2, bitmap.width * s, bitmap.height * s);
    bitmap.close();
  } else {
    context.clearRect(0, 0, card.thumb.width, card.thumb.height);
  }
  card.thumb.parentElement.classList.toggle("none", head.format !== "jpeg");
  clearTimeout(askThumb.timer);
  askThumb.timer = setTimeout(askThumb, Math.max(60, 800 / cards.length));
}

const names = {corners: "corners", lines: "lines", regions: "regions", matches: "matches"};

export function showStatus(status) {
  const times = status.steps.map((step) => step.ms ?? step.mean), all = times.reduce((sum, ms) => sum + (ms ?? 0), 0);
  status.steps.forEach((step, index) => {
    const card = cards[index];
    if (!card) return;
    const ms = times[index];
    card.time.textContent = ms === undefined ? "" : `${short(ms)} ms`;
    card.share.style.inlineSize = ms === undefined || !all ? "0" : `${100 * ms / all}%`;
    card.bar.title = ms === undefined || !all ? "" : `${Math.round(100 * ms / all)} % of the chain's time`;
    card.frame.textContent = step.frame || "no frame";
    card.counts.textContent = Object.entries(step.counts ?? {}).filter(([name]) => names[name]).map(([name, count]) => `${count} ${names[name]}`).join(", ");
  });
  const marks = cards.map(() => []);
  for (const message of status.messages ?? []) marks[message.step ?? 0]?.push(message);
  const error = status.tuning?.error;
  if (error) marks[error.step]?.push({level: "error", text: `Trial: ${error.text}`});
  cards.forEach((card, index) => {
    const key = JSON.stringify(marks[index]);
    if (card.key === key) return;
    card.key = key;
    card.notes.replaceChildren(...marks[index].slice(-4).map(({level, text}) => make("li", {className: level}, text)));
    card.button.classList.toggle("error", marks[index].some(({level}) => level === "error"));
    card.button.classList.toggle("warning", marks[index].some(({level}) => level === "warning"));
  });
  const tuned = new Set((status.tuning?.changed ?? []).map(({step}) => step));
  cards.forEach((card, index) => {
    const isTuned = tuned.has(index);
    if (card.isTuned === isTuned) return;
    card.isTuned = isTuned;
    card.marks.replaceChildren(...(isTuned ? [make("span", {className: "mark"}, "on trial")] : []));
  });
}
