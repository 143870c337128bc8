// Making elements in few words.

/** An element with properties (`data-…` and `aria-…` as attributes) and children. */
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [key, value] of Object.entries(properties)) {
    if (value === undefined || value === null) continue;
    if (key.includes("-") || key === "role" || key === "for" || key === "list") element.setAttribute(key, value);
    else element[key] = value;
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

/** A number in few digits. */
export function short(number) {
  if (number === null || number === undefined) return "–";
  const size = Math.abs(number);
  if (size >= 100000 || (size > 0 && size < 0.01)) return number.toExponential(1);
  return String(Number(number.toPrecision(size >= 1000 ? 5 : 3)));
}

/** Moves the choice of a group of radio buttons with the arrow keys, as people expect of one. */
export function radioGroup(group, choose) {
  const buttons = [...group.querySelectorAll("[role=radio]")];
  group.addEventListener("click", (event) => {
    const button = event.target.closest("[role=radio]");
    if (button) choose(button.dataset);
  });
  group.addEventListener("keydown", (event) => {
    const step = {ArrowRight: 1, ArrowDown: 1, ArrowLeft: -1, ArrowUp: -1}[event.key];
    if (!step) return;
    event.preventDefault();
    const next = buttons[(buttons.indexOf(document.activeElement) + step + buttons.length) % buttons.length];
    next.focus();
    choose(next.dataset);
  });
  return (isChosen) => {
    for (const button of buttons) {
      const chosen = isChosen(button.dataset);
      button.setAttribute("aria-checked", chosen);
      button.tabIndex = chosen ? 0 : -1;
    }
  };
}
