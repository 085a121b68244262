// Times in the reader's zone, with UTC beside them for whoever compares with a log.
import { el } from "./dom.js";
import { language, say } from "./texts.js";

const DAY = 86400000;

function near(date) {
  const minutes = Math.round((date - Date.now()) / 60000);
  const format = new Intl.RelativeTimeFormat(language, { numeric: "auto" });
  if (Math.abs(minutes) < 60) return format.format(minutes, "minute");
  if (Math.abs(minutes) < 48 * 60) return format.format(Math.round(minutes / 60), "hour");
  return format.format(Math.round((date - Date.now()) / DAY), "day");
}

export const utc = (text) => `${text.replace("T", " ").replace("Z", "")} UTC`;

// `kind`: "day", "moment", or "near" for how far away it is.
export function time(text, kind = "moment") {
  if (!text) return el("span", { class: "soft" }, say("no_time"));
  const date = new Date(text);
  if (Number.isNaN(date.getTime())) return el("span", {}, text);
  const style = kind === "day" ? { dateStyle: "medium" } : { dateStyle: "medium", timeStyle: "short" };
  const shown = kind === "near" ? near(date) : new Intl.DateTimeFormat(language, style).format(date);
  return el("time", { datetime: text, title: utc(text) }, shown);
}

export const dayName = (day) => new Intl.DateTimeFormat(language, { dateStyle: "medium", timeZone: "UTC" }).format(new Date(`${day}T12:00:00Z`));
