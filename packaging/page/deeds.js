// Who did what by the page.
import { read } from "./api.js";
import { el } from "./dom.js";
import { say } from "./texts.js";
import { time } from "./times.js";

const load = (route, byItself) => read("deeds", byItself);

function render({ deeds: list }) {
  const entry = ({ time: when, who, what }, index) => el("li", { "data-key": list.length - index }, el("p", { class: "soft small" }, time(when), " · ", who), el("p", { class: "break", lang: "en" }, what));
  return [el("div", { class: "head" }, el("h1", {}, say("deeds"))), el("section", { class: "card" }, list.length ? el("ol", { class: "line" }, list.map(entry)) : el("div", { class: "empty" }, say("deeds_none")))];
}

export const deeds = { load, render };
