// The service's interface: docs/page-api.yaml describes it.

export class Refused extends Error {
  constructor(status, code, message) {
    super(message);
    this.status = status;
    this.code = code;
  }
}

export const session = { csrf: "", user: null };

async function ask(path, options) {
  let answer;
  try {
    answer = await fetch(`api/${path}`, { credentials: "same-origin", cache: "no-store", ...options });
  } catch {
    throw new Refused(0, "away", "");
  }
  const body = await answer.json().catch(() => ({}));
  if (answer.ok) return body;
  throw new Refused(answer.status, body.error?.code ?? "away", body.error?.message ?? "");
}

// `byItself`: nobody has asked for it just now, so it does not keep the session from ending.
export const read = (path, byItself = false) => ask(path, { headers: byItself ? { "X-Zelvek-Refresh": "1" } : {} });

export async function begin() {
  Object.assign(session, await read("session"));
  return session;
}

const post = (path, body) =>
  ask(path, { method: "POST", headers: { "Content-Type": "application/json", "X-Zelvek-Csrf": session.csrf }, body: JSON.stringify(body ?? {}) });

// After a restart the service wants another token; it is asked for once.
export async function change(path, body) {
  try {
    return await post(path, body);
  } catch (error) {
    if (error.code !== "csrf") throw error;
    await begin();
    return post(path, body);
  }
}

export const logIn = (token) => post("login", { token });
