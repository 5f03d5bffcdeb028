// The agent console's page: the desk's customers and conversations, live from the desk's event
// stream; an agent's actions go to /api/act. The agent logs in with a name and a password (or
// makes the first agent with the desk's one-time setup link); the session is an HttpOnly cookie.
// Whatever a customer sent is shown as text only (textContent), never as markup.
let setupCode = new URLSearchParams(location.hash.slice(1)).get("setup") || "";
const $ = (id) => document.getElementById(id);
const customers = new Map();
const inbox = [];
let seq = 0;
let openId = null;
let events = null;
let down = false;
let agent = "";

function api(path, params = {}) {
  const query = new URLSearchParams(params).toString();
  return query ? `${path}?${query}` : path;
}

// A request the desk refused for want of a login shows the login form.
function loggedOut() {
  agent = "";
  unfollow();
  showAgent();
  $("desk-status").textContent = "logged out";
  $("desk-status").className = "status";
}

async function getJson(path, params) {
  const response = await fetch(api(path, params), { cache: "no-store" });
  if (response.status === 401) loggedOut();
  if (!response.ok) throw new Error(`${path}: ${response.status}`);
  return response.json();
}

async function post(path, body) {
  const response = await fetch(path, {
    method: "POST",
    headers: { "Content-Type": "application/json" },
    body: JSON.stringify(body),
  });
  const answer = await response.json().catch(() => ({ error: "no answer" }));
  if (response.status === 401 && path === "/api/act") loggedOut();
  return answer;
}

async function act(what, extra = {}) {
  $("action-error").textContent = "";
  const answer = await post("/api/act", { customer: openId, do: what, ...extra });
  if (answer.error) $("action-error").textContent = answer.error;
  return !answer.error;
}

function element(tag, text, className) {
  const made = document.createElement(tag);
  if (text !== undefined) made.textContent = text;
  if (className) made.className = className;
  return made;
}

const order = { waiting: 0, agent: 1, robot: 2, ended: 3 };
const stateText = (c) =>
  c.state === "waiting" ? `waiting${c.group ? ` · ${c.group}` : ""}` :
  c.state === "agent" ? "with an agent" : c.state === "robot" ? "with the robot" : "ended";

function waited(c) {
  if (c.state !== "waiting" || !c.waitingSince) return "";
  const seconds = Math.max(0, Math.round((Date.now() - c.waitingSince) / 1000));
  return seconds < 60 ? `${seconds} s` : `${Math.floor(seconds / 60)} min ${seconds % 60} s`;
}

let renderPending = false;
function renderList() {
  if (renderPending) return;
  renderPending = true;
  requestAnimationFrame(() => {
    renderPending = false;
    const rows = document.createDocumentFragment();
    const sorted = [...customers.values()].sort(
      (a, b) => order[a.state] - order[b.state] || b.lastActive - a.lastActive);
    for (const c of sorted) {
      const row = element("tr");
      row.dataset.id = c.id;
      if (c.id === openId) row.classList.add("open");
      row.append(element("td", c.name), element("td"), element("td", waited(c), "waited"),
        element("td", c.unread ? String(c.unread) : "", "unread"), element("td", c.agent));
      row.children[1].append(element("span", stateText(c), `state ${c.state}`));
      row.addEventListener("click", () => open(c.id));
      rows.append(row);
    }
    $("customer-list").replaceChildren(rows);
  });
}

function renderInbox() {
  $("inbox-count").textContent = String(inbox.length);
  const items = document.createDocumentFragment();
  for (const left of [...inbox].reverse()) {
    const item = element("li");
    item.append(element("strong", left.name), element("span", ` · ${new Date(left.time).toLocaleString()}`));
    const values = element("dl");
    for (const [key, value] of Object.entries(left.values || {})) {
      values.append(element("dt", key), element("dd", typeof value === "string" ? value : JSON.stringify(value)));
    }
    item.append(values);
    items.append(item);
  }
  $("inbox").replaceChildren(items);
}

function lineItem(line) {
  const item = element("li", undefined, line.who);
  if (line.who !== "event") item.append(element("span", line.name || line.who, "who"));
  item.append(document.createTextNode(line.who === "event" ? `— ${line.text} —` : line.text));
  return item;
}

function renderHead(c) {
  $("customer-name").textContent = c.name;
  $("customer-state").textContent = stateText(c) + (c.agent ? ` · ${c.agent}` : "") +
    (c.rating ? ` · ${c.rating}` : "");
  $("customer-state").className = `state ${c.state}`;
  const info = document.createDocumentFragment();
  info.append(element("dt", "address"), element("dd", c.id));
  for (const section of ["userInfo", "contactInfo", "requestInfo"]) {
    for (const [key, value] of Object.entries(c[section] || {})) {
      info.append(element("dt", `${section}.${key}`),
        element("dd", typeof value === "string" ? value : JSON.stringify(value)));
    }
  }
  $("customer-info").replaceChildren(info);
  const mine = c.state === "agent" && c.agent === agent;
  $("waiting-actions").hidden = c.state !== "waiting";
  $("say").hidden = !mine;
  $("agent-actions").hidden = !mine;
}

async function open(id) {
  openId = id;
  $("conversation").hidden = false;
  const found = await getJson("/api/conversation", { customer: id }).catch(() => null);
  if (!found || openId !== id) return;
  customers.set(id, found.customer);
  renderHead(found.customer);
  $("lines").replaceChildren(...found.lines.map(lineItem));
  $("lines").scrollTop = $("lines").scrollHeight;
  renderList();
  if (found.customer.unread) act("read");
}

function apply(event) {
  if (event.inbox) {
    inbox.push(event.inbox);
    renderInbox();
  }
  if (event.customer) {
    // Events carry a customer's information only when it changed: the rest is kept.
    const c = { ...customers.get(event.customer.id), ...event.customer };
    customers.set(c.id, c);
    if (c.id === openId) {
      renderHead(c);
      if (event.line) {
        $("lines").append(lineItem(event.line));
        $("lines").scrollTop = $("lines").scrollHeight;
        if (event.line.who === "customer" && !document.hidden) act("read");
      }
    }
    renderList();
  }
}

async function load() {
  const state = await getJson("/api/state");
  seq = state.seq;
  setStatus(true);
  customers.clear();
  for (const c of state.customers) customers.set(c.id, c);
  inbox.splice(0, inbox.length, ...state.inbox);
  renderList();
  renderInbox();
  if (openId && customers.has(openId)) {
    open(openId);
  } else if (openId) {
    // The desk no longer has this customer (it forgot them, or it restarted without them).
    openId = null;
    $("conversation").hidden = true;
  }
  follow();
}

function setStatus(live) {
  $("desk-status").textContent = live ? "desk online" : "desk not reachable";
  $("desk-status").className = `status ${live ? "live" : "down"}`;
  $("banner").hidden = live;
  if (!live) $("banner").textContent = "The desk is not reachable: reconnecting…";
}

// The tabs of one browser share one event stream: the tab that holds the lock (Web Locks)
// follows the desk and passes every event on to the others (BroadcastChannel), so that ten tabs
// use one of the browser's few connections to the desk, not ten. When that tab closes, another
// takes the lock and follows on.
const channel = "BroadcastChannel" in window ? new BroadcastChannel("quor-cs-console") : null;
let leading = false;
let stopLeading = null;

function stream() {
  if (events) events.close();
  events = new EventSource(api("/api/events", { after: seq }));
  events.onopen = () => {
    tell({ status: true });
    if (down) {
      down = false;
      tell({ reload: true });  // the desk may have restarted: start from its state again
    }
  };
  events.onmessage = (message) => tell({ id: Number(message.lastEventId), data: message.data });
  events.addEventListener("reload", () => tell({ reload: true }));
  events.onerror = () => {
    down = true;
    tell({ status: false });
  };
}

// What the stream said, here and in the other tabs.
function tell(news) {
  hear(news);
  if (channel) channel.postMessage(news);
}

function hear(news) {
  if (news.status !== undefined) setStatus(news.status);
  if (news.reload) load().catch(() => {});
  if (news.id && news.id > seq) {
    seq = news.id;
    apply(JSON.parse(news.data));
  }
}

if (channel) channel.onmessage = (message) => agent && hear(message.data);

function follow() {
  if (!navigator.locks || !channel) {
    stream();  // a browser without them: a stream per tab
    return;
  }
  if (leading) {
    stream();  // from the state just loaded
    return;
  }
  if (stopLeading !== null) return;  // waiting for the lock
  stopLeading = undefined;
  navigator.locks.request("quor-cs-console-events", () => new Promise((release) => {
    leading = true;
    stopLeading = release;
    stream();
  }));
}

function unfollow() {
  if (events) events.close();
  events = null;
  leading = false;
  if (typeof stopLeading === "function") stopLeading();
  stopLeading = null;
}

function showAgent() {
  $("login").hidden = Boolean(agent);
  $("agent").hidden = !agent;
  $("logout").hidden = !agent;
  $("agent").textContent = agent ? `Agent: ${agent}` : "";
  $("login-title").textContent = setupCode ? "Make the first agent" : "Log in";
  $("login-button").textContent = setupCode ? "Make and log in" : "Log in";
  $("agent-password").autocomplete = setupCode ? "new-password" : "current-password";
  if (openId && customers.has(openId)) renderHead(customers.get(openId));
}

function loggedIn(name) {
  agent = name;
  showAgent();
  load().catch(() => {
    down = true;
    setStatus(false);
    follow();
  });
}

$("login").addEventListener("submit", async (event) => {
  event.preventDefault();
  const name = $("agent-name").value.trim();
  const password = $("agent-password").value;
  const answer = setupCode ? await post("/api/setup", { code: setupCode, name, password })
                           : await post("/api/login", { name, password });
  $("login-error").textContent = answer.error || "";
  if (answer.error) return;
  $("agent-password").value = "";
  if (setupCode) history.replaceState(null, "", location.pathname);  // used once
  setupCode = "";
  loggedIn(answer.agent);
});
$("logout").addEventListener("click", async () => {
  await post("/api/logout", {});
  loggedOut();
});
$("say").addEventListener("submit", async (event) => {
  event.preventDefault();
  const text = $("say-text").value;
  if (text && await act("say", { text })) $("say-text").value = "";
});
$("take").addEventListener("click", () => act("take"));
$("no-agent").addEventListener("click", () => act("decline", { status: 2 }));
$("refuse").addEventListener("click", () => act("decline", { status: 3 }));
$("ask-rating").addEventListener("click", () => act("rate"));
$("invite").addEventListener("click", () => act("invite"));
$("back").addEventListener("click", () => act("back"));
$("end").addEventListener("click", () => act("end", { text: $("closing-text").value }));
$("show-customers").addEventListener("click", () => {
  $("customer-table").hidden = false;
  $("inbox").hidden = true;
  $("show-customers").classList.add("on");
  $("show-inbox").classList.remove("on");
});
$("show-inbox").addEventListener("click", () => {
  $("customer-table").hidden = true;
  $("inbox").hidden = false;
  $("show-inbox").classList.add("on");
  $("show-customers").classList.remove("on");
});
setInterval(() => {
  for (const row of $("customer-list").children) {
    const c = customers.get(row.dataset.id);
    if (c) row.querySelector(".waited").textContent = waited(c);
  }
}, 1000);

fetch("/api/me", { cache: "no-store" })
  .then((response) => response.json())
  .then((me) => me.agent ? loggedIn(me.agent) : loggedOut())
  .catch(() => loggedOut());
