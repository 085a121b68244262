// What people are told, and whether somebody has seen it.
import { read } from "./api.js";
import { el } from "./dom.js";
import { count, say } from "./texts.js";
import { time } from "./times.js";
import { badge } from "./words.js";

const load = ({ query }, byItself) => read(`notices?${new URLSearchParams(query.get("after") ? { after: query.get("after") } : {})}`, byItself);

function one(notice, { act }) {
  const button = (name) => el("button", { "data-key": name, "aria-label": `${say(`do_${name}`)}: ${notice.subject}`, onclick: () => act({ title: say(`do_${name}_title`), text: say(`do_${name}_text`, { subject: notice.subject }), button: say(`do_${name}`),
    path: `notices/${notice.number}/${name}`, done: say(`done_${name}`) }) }, say(`do_${name}`));
  return el("li", { "data-key": notice.number }, el("div", { class: "title" }, el("h3", {}, notice.subject), badge(notice.state)), notice.text.split("\n\n").map((part) => el("p", { class: "break" }, part)),
    el("p", { class: "soft small" }, say("notice_since"), " ", time(notice.since), notice.times > 1 ? ` · ${say("notice_times", { count: count(notice.times) })}` : "", ` · ${say("notice_owner", { owner: notice.owner })}`),
    el("div", { class: "actions" }, notice.state === "raised" ? button("seen") : null, button("clear")));
}

function render(data, tools) {
  const nothing = el("div", { class: "empty" }, el("strong", {}, say("no_notices")), say("no_notices_text"));
  return [el("div", { class: "head" }, el("h1", {}, say("notices"))), el("section", { class: "card" }, data.notices.length ? el("ul", { class: "needs" }, data.notices.map((notice) => one(notice, tools))) : nothing,
    data.next ? el("nav", { class: "pages", "aria-label": say("pages") }, el("span"), el("a", { class: "button", href: `#/notices?after=${data.next}` }, say("next_page"))) : null)];
}

export const notices = { load, render };
