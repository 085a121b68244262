// First what needs a person, then numbers, then what is coming and what has been.
import { read, session } from "./api.js";
import { chart, days } from "./charts.js";
import { el } from "./dom.js";
import { count, say } from "./texts.js";
import { time } from "./times.js";
import { actions, badge, english, stateOf } from "./words.js";

const CALENDAR = 90, HISTORY = 30;

async function load(route, byItself) {
  const nobody = Promise.resolve(null);
  const [status, attention, calendar, runs, limits] = await Promise.all([read("status", byItself), read("attention", byItself), read("calendar", byItself),
    session.user ? nobody : read("runs", byItself), session.user ? nobody : read("limits", byItself)]);
  return { status, attention, calendar, runs, limits };
}

function needs({ attention, status }, tools) {
  const none = Object.values(status.jobs).every((number) => !number);
  const nothing = el("div", { class: "empty" }, el("strong", {}, none ? say("no_jobs") : say("all_well")), none ? say("no_jobs_text") : say("all_well_text"));
  const list = el("ul", { class: "needs" }, attention.jobs.map((job) => el("li", { "data-key": job.id },
    el("div", { class: "title" }, el("h3", {}, el("a", { href: `#/job/${job.id}` }, job.certname)), badge(stateOf(job)), el("span", { class: "soft small" }, job.user_name)),
    english("p", job.sentence), el("div", { class: "actions" }, actions(job, tools)))));
  return el("section", { class: "card", "aria-labelledby": "needs" }, el("h2", { id: "needs" }, say("needs")),
    attention.jobs.length ? list : nothing, attention.more && el("p", {}, el("a", { href: "#/jobs" }, say("needs_more"))));
}

function numbers({ status }) {
  const { jobs } = status;
  const one = (state, number, kind) => el("li", {}, el("a", { class: number ? kind : "", href: `#/jobs?state=${state}` }, el("b", {}, count(number)), el("span", {}, say(`number_${state}`))));
  return el("ul", { class: "numbers", "aria-label": say("numbers") }, one("verified", jobs.verified), one("failing", jobs.failed + jobs.failing, "bad"), one("waiting", jobs.waiting),
    one("running", jobs.running), one("expiring", status.expiring, "warn"), jobs.paused ? one("paused", jobs.paused) : null);
}

function calendar({ calendar, status }) {
  const first = status.now.slice(0, 10);
  const known = new Map(calendar.days.map(({ day, jobs }) => [day, jobs]));
  const late = calendar.days.filter(({ day }) => day < first).reduce((sum, { jobs }) => sum + jobs, 0);
  const bars = days(first, CALENDAR).map((day) => ({ day, parts: [["fill", known.get(day) ?? 0, say("ends")]] }));
  const sum = bars.reduce((all, { parts }) => all + parts[0][1], 0);
  const summary = say("calendar_summary", { count: count(sum), days: CALENDAR }) + (late ? ` ${say("calendar_late", { count: count(late) })}` : "");
  return el("section", { class: "card" }, el("h2", {}, say("calendar")), chart(say("calendar"), summary, bars));
}

const GOOD = ["installed", "nothing_to_do"], BAD = ["failed", "stopped", "died"];

function history({ runs, status }) {
  if (!runs) return null;
  const known = new Map(runs.days.map(({ day, outcomes }) => [day, outcomes]));
  const sum = (outcomes, names) => Object.entries(outcomes).filter(([name]) => names(name)).reduce((all, [, number]) => all + number, 0);
  const first = new Date(Date.parse(status.now) - (HISTORY - 1) * 86400000).toISOString().slice(0, 10);
  const bars = days(first, HISTORY).map((day) => {
    const outcomes = known.get(day) ?? {};
    return { day, parts: [["good", sum(outcomes, (name) => GOOD.includes(name)), say("runs_good")], ["calm", sum(outcomes, (name) => !GOOD.includes(name) && !BAD.includes(name)), say("runs_calm")],
      ["bad", sum(outcomes, (name) => BAD.includes(name)), say("runs_bad")]] };
  });
  const total = (index) => count(bars.reduce((all, { parts }) => all + parts[index][1], 0));
  return el("section", { class: "card" }, el("h2", {}, say("runs")), chart(say("runs"), say("runs_summary", { days: HISTORY, good: total(0), calm: total(1), bad: total(2) }), bars),
    el("p", { class: "legend", "aria-hidden": "true" }, [["good", "runs_good"], ["calm", "runs_calm"], ["bad", "runs_bad"]].map(([kind, words]) => el("span", {}, el("i", { class: kind }), say(words)))));
}

function limits({ limits }) {
  if (!limits) return null;
  return el("section", { class: "card" }, el("h2", {}, say("limits")), el("p", { class: "soft small" }, say("limits_text")),
    limits.authorities.length ? el("ul", {}, limits.authorities.map(({ name, orders, jobs }) => el("li", { "data-key": name }, el("p", {}, say("limits_of", { name, orders: count(orders), limit: count(limits.orders_limit), jobs: count(jobs) })),
      el("meter", { min: 0, max: limits.orders_limit, high: limits.orders_limit * 0.8, value: orders, "aria-label": name })))) : el("p", { class: "empty" }, say("limits_none")));
}

function about({ status }) {
  if (!status.version) return null;
  const row = (name, value) => [el("dt", {}, say(name)), el("dd", {}, value)];
  return el("section", { class: "card" }, el("h2", {}, say("service")), el("dl", { class: "facts" }, row("version", status.version), row("since", time(status.started)),
    row("scheduler", say(status.scheduler ? "scheduler_on" : "scheduler_off")), row("notices", say("notices_open", { raised: count(status.notices.raised), seen: count(status.notices.seen) }))));
}

export const overview = {
  load,
  render: (data, tools) => [el("div", { class: "head" }, el("h1", {}, say("overview"))), needs(data, tools), numbers(data), el("div", { class: "two" }, calendar(data), history(data), limits(data), about(data))],
};
