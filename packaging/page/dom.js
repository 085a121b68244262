// Elements are made of names, attributes and texts; no text from anywhere is ever read as HTML.

const SVG = "http://www.w3.org/2000/svg";

function fill(element, attributes, children) {
  for (const [name, value] of Object.entries(attributes ?? {})) {
    if (name === "onclick" || name === "onsubmit" || name === "onchange" || name === "oninput") {
      element[name] = value;
    } else if (value === true) {
      element.setAttribute(name, "");
    } else if (value !== false && value !== null && value !== undefined) {
      element.setAttribute(name, value);
    }
  }
  for (const child of children.flat(Infinity)) {
    if (child === null || child === undefined || child === false) continue;
    element.append(child instanceof Node ? child : document.createTextNode(String(child)));
  }
  return element;
}

export const el = (name, attributes, ...children) => fill(document.createElement(name), attributes, children);
export const svg = (name, attributes, ...children) => fill(document.createElementNS(SVG, name), attributes, children);

const HANDLERS = ["onclick", "onsubmit", "onchange", "oninput"];
const keyOf = (node) => (node.nodeType === Node.ELEMENT_NODE ? node.getAttribute("data-key") : null);
const fits = (old, fresh) => old.nodeName === fresh.nodeName && keyOf(old) === keyOf(fresh);

function updateAttributes(old, fresh) {
  for (const { name } of [...old.attributes]) {
    // What the reader has opened stays open.
    if (!fresh.hasAttribute(name) && name !== "open") old.removeAttribute(name);
  }
  for (const { name, value } of [...fresh.attributes]) {
    if (old.getAttribute(name) === value) continue;
    old.setAttribute(name, value);
    if (name === "value" && old !== document.activeElement) old.value = value;
  }
  if (old.nodeName === "OPTION") old.selected = fresh.hasAttribute("selected");
  for (const name of HANDLERS) old[name] = fresh[name];
}

// Makes `old` what `fresh` is and touches what is the same as little as possible: what has the focus, is selected, opened or
// scrolled stays so.
export function update(old, fresh) {
  if (old.nodeType === Node.TEXT_NODE) {
    if (old.data !== fresh.data) old.data = fresh.data;
    return;
  }
  if (old.isEqualNode(fresh)) {
    adopt(old, fresh);
    return;
  }
  updateAttributes(old, fresh);
  updateChildren(old, [...fresh.childNodes]);
}

// The same elements, with handlers that know the newest data.
function adopt(old, fresh) {
  for (const name of HANDLERS) if (fresh[name]) old[name] = fresh[name];
  fresh.childNodes.forEach((child, index) => {
    if (child.nodeType === Node.ELEMENT_NODE) adopt(old.childNodes[index], child);
  });
}

export function updateChildren(parent, wanted) {
  // What has gone goes first: an element that need not be moved keeps the focus.
  const keys = new Set(wanted.map(keyOf));
  for (const child of [...parent.childNodes]) if (keyOf(child) !== null && !keys.has(keyOf(child))) child.remove();
  let at = parent.firstChild;
  for (const fresh of wanted) {
    let match = at;
    if (!match || !fits(match, fresh)) {
      match = keyOf(fresh) === null ? null : [...parent.childNodes].find((child) => fits(child, fresh));
    }
    if (!match) {
      parent.insertBefore(fresh, at);
      continue;
    }
    update(match, fresh);
    if (match === at) {
      at = at.nextSibling;
    } else {
      parent.insertBefore(match, at);
    }
  }
  while (at) {
    const next = at.nextSibling;
    at.remove();
    at = next;
  }
}
