// The agent console's page: the desk's customers and conversations, live from the desk's event
// stream; an agent's actions go to /api/act. The agent logs in with a name and a password (or
// makes the first agent with the desk's one-time setup link); the session is an HttpOnly cookie.
// Whatever a customer sent is shown as text only (textContent), never as markup.
import { texts } from "./console-texts.js";

const params = new URLSearchParams(location.hash.slice(1));
let setupCode = params.get("setup") || "";
const $ = (id) => document.getElementById(id);
const customers = new Map();
const inbox = [];
let seq = 0;
let openId = params.get("customer") || null;  // the open conversation survives a reload
let events = null;
let down = false;
let agent = "";
let agents = [];
let groups = [];
let replies = [];

// ---- Words: English or Chinese, from the browser's language unless the agent chose ----------

let language = localStorage.getItem("quor-cs-language") ||
  (navigator.language.toLowerCase().startsWith("zh") ? "zh" : "en");

function t(key, values = {}) {
  const text = texts[language][key] ?? texts.en[key] ?? key;
  return text.replace(/\{(\w+)\}/g, (_, name) => String(values[name] ?? ""));
}

function translatePage() {
  document.documentElement.lang = language === "zh" ? "zh-CN" : "en";
  $("language").value = language;
  for (const element of document.querySelectorAll("[data-t]")) {
    element.textContent = t(element.dataset.t);
  }
  $("closing-text").value = t("closingText");
  $("lines").setAttribute("aria-label", t("conversation"));
  showAgent();
  renderList();
  renderInbox();
  renderPassTo();
  renderReplies();
  if (openId && customers.has(openId)) open(openId, { keepText: true });
}

// ---- The desk's API --------------------------------------------------------------------------

function api(path, query = {}) {
  const text = new URLSearchParams(query).toString();
  return text ? `${path}?${text}` : path;
}

// A request the desk refused for want of a login shows the login form.
function loggedOut() {
  agent = "";
  unfollow();
  showAgent();
  $("desk-status").textContent = t("loggedOut");
  $("desk-status").className = "status";
  updateTitle();
}

async function getJson(path, query) {
  const response = await fetch(api(path, query), { cache: "no-store" });
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

// ---- The customers ---------------------------------------------------------------------------

const order = { waiting: 0, agent: 1, robot: 2, ended: 3 };
const unread = (c) => (c.state === "ended" ? 0 : Math.max(0, (c.written || 0) - (c.read || 0)));
const mine = (c) => c.state === "agent" && c.agent === agent;

function stateText(c) {
  if (c.state === "waiting") return c.group ? t("waitingIn", { group: c.group }) : t("waitingState");
  return t({ agent: "withAgent", robot: "withRobot", ended: "endedState" }[c.state] || c.state);
}

function duration(since) {
  const seconds = Math.max(0, Math.round((Date.now() - since) / 1000));
  return seconds < 60 ? t("seconds", { s: seconds })
                      : t("minutes", { m: Math.floor(seconds / 60), s: seconds % 60 });
}
const waited = (c) => (c.state === "waiting" && c.waitingSince ? duration(c.waitingSince) : "");

// The longest wait first, then the agents' customers (one's own first), then the robot's, then
// the ended ones, each by their latest activity.
function compare(a, b) {
  return order[a.state] - order[b.state] ||
    (a.state === "waiting" ? a.waitingSince - b.waitingSince : 0) ||
    (mine(b) ? 1 : 0) - (mine(a) ? 1 : 0) ||
    b.lastActive - a.lastActive;
}

function shown(c) {
  const state = $("filter-state").value;
  const group = $("filter-group").value;
  if (state === "mine" ? !mine(c) : state && c.state !== state) return false;
  return !group || c.group === group;
}

let renderPending = false;
function renderList() {
  if (renderPending) return;
  renderPending = true;
  requestAnimationFrame(() => {
    renderPending = false;
    const focused = document.activeElement?.closest?.("#customer-list tr")?.dataset.id;
    const rows = document.createDocumentFragment();
    for (const c of [...customers.values()].filter(shown).sort(compare)) {
      const row = element("tr");
      row.dataset.id = c.id;
      if (c.id === openId) row.classList.add("open");
      const name = element("button", c.name, "who-row");
      name.type = "button";
      name.title = c.name;
      const count = unread(c);
      row.append(element("td"), element("td"), element("td", waited(c), "waited"),
        element("td", count ? String(count) : "", "unread"), element("td", c.agent));
      row.children[0].append(name);
      row.children[1].append(element("span", stateText(c), `state ${c.state}`));
      rows.append(row);
    }
    $("customer-list").replaceChildren(rows);
    if (focused) $("customer-list").querySelector(`tr[data-id="${CSS.escape(focused)}"] button`)?.focus();
    renderCounts();
    updateTitle();
  });
}

// How many wait in each group, and the groups to filter by.
// The whole row opens its customer for a mouse, the name's button for the keyboard: one listener
// for every row. Enter opens here, as every browser's button would on its own: some send no click
// for a key that automation typed.
$("customer-list").addEventListener("click", (event) => {
  const row = event.target.closest("tr");
  if (row) open(row.dataset.id);
});
$("customer-list").addEventListener("keydown", (event) => {
  const row = event.target.closest("tr");
  if (event.key !== "Enter" || !row) return;
  event.preventDefault();
  open(row.dataset.id);
});

function renderCounts() {
  const waiting = new Map();
  const known = new Set(groups.map((g) => g.id));
  for (const c of customers.values()) {
    if (c.group) known.add(c.group);
    if (c.state === "waiting") waiting.set(c.group, (waiting.get(c.group) || 0) + 1);
  }
  const parts = [...waiting].sort().map(([group, count]) =>
    t("waitingCount", { group: group || t("noGroup"), count }));
  $("waiting-counts").textContent = parts.length ? `${t("waitingNow")}: ${parts.join(" · ")}` : "";
  const select = $("filter-group");
  const chosen = select.value;
  const options = [element("option", t("all"))];
  options[0].value = "";
  for (const group of [...known].sort()) {
    const option = element("option", waiting.get(group) ? `${group} (${waiting.get(group)})` : group);
    option.value = group;
    options.push(option);
  }
  select.replaceChildren(...options);
  select.value = chosen;
}

// The tab's title carries what asks for the agent: customers waiting, and their own customers'
// unread lines.
function updateTitle() {
  let count = 0;
  if (agent) {
    for (const c of customers.values()) {
      if (c.state === "waiting") count += 1;
      else if (mine(c) && unread(c)) count += 1;
    }
  }
  document.title = count ? `(${count}) ${t("title")}` : t("title");
}

function renderInbox() {
  $("inbox-count").textContent = String(inbox.length);
  const items = document.createDocumentFragment();
  for (const left of [...inbox].reverse()) {
    const item = element("li");
    item.append(element("strong", left.name), element("span", ` · ${new Date(left.time).toLocaleString(language)}`));
    const values = element("dl");
    for (const [key, value] of Object.entries(left.values || {})) {
      values.append(element("dt", key), element("dd", typeof value === "string" ? value : JSON.stringify(value)));
    }
    item.append(values);
    items.append(item);
  }
  $("inbox").replaceChildren(items);
}

// ---- A conversation --------------------------------------------------------------------------

const clock = (ms) => new Date(ms).toLocaleTimeString(language, { hour12: false });

// An event in the page's language: the board's English text, else the words for its key.
function eventText(line) {
  const values = line.values || {};
  let key = line.event;
  if (key === "asked" && values.group) key = "askedGroup";
  if (key === "rated" && values.robot) key = "ratedRobot";
  if (language === "en" || !texts[language][`event.${key}`]) return line.text;
  let said = t(`event.${key}`, values);
  if (key === "rated" && values.suggestion) said += ` ${t("event.suggestion", values)}`;
  if ((key === "ended" || key === "backToRobot") && values.text) said += t("event.said", values);
  return said;
}

// The desk's lines (the agent's, the robot's, automatic ones) the customer read: marked "read".
const fromDesk = (who) => who === "agent" || who === "robot" || who === "desk";

function markSeen(item, seenAt) {
  if (!fromDesk(item.className) || item.querySelector(".seen") || Number(item.dataset.time) > seenAt) return;
  item.append(element("span", t("seen"), "seen"));
}

// A picture or file of the open conversation, fetched through the console (which serves only
// real pictures inline, and everything else as a download).
const pictureTypes = ["image/png", "image/jpeg", "image/gif", "image/webp"];

function fileNode(file, asPicture = pictureTypes.includes(String(file.type).toLowerCase())) {
  const href = `/api/file?customer=${encodeURIComponent(openId)}&url=${encodeURIComponent(file.url)}`;
  const link = element("a");
  link.href = href;
  if (asPicture) {
    const picture = element("img", undefined, "picture");
    picture.src = href;
    picture.alt = file.name;
    if (file.width > 0 && file.height > 0) {
      const scale = Math.min(1, 240 / file.width, 240 / file.height);
      picture.width = Math.max(1, Math.round(file.width * scale));
      picture.height = Math.max(1, Math.round(file.height * scale));
    }
    link.target = "_blank";
    link.rel = "noopener";
    link.append(picture);
    // Bytes that are no picture (the console serves them as a download): the file's link.
    picture.addEventListener("error", () => link.replaceWith(fileNode(file, false)), { once: true });
    return link;
  }
  const size = new Intl.NumberFormat(language, { style: "unit", unit: "kilobyte", maximumFractionDigits: 1 })
    .format((Number(file.size) || 0) / 1000);
  link.className = "file";
  link.textContent = `${file.name} (${size})`;
  link.download = file.name;
  return link;
}

function lineItem(line, seenAt = 0) {
  const item = element("li", undefined, line.who);
  item.dataset.time = line.time;
  const when = element("time", clock(line.time), "quiet");
  when.dateTime = new Date(line.time).toISOString();
  when.title = line.stamp ? t("sentReceived", { sent: clock(line.stamp), received: clock(line.time) })
                          : new Date(line.time).toLocaleString(language);
  if (line.who === "event") {
    item.append(document.createTextNode(`— ${eventText(line)} —`), when);
    return item;
  }
  const who = line.who === "desk" ? t("automatic") : line.who === "note" ? t("noteBy", { agent: line.name })
    : line.name || t(line.who);
  const head = element("span", who, "who");
  head.append(when);
  item.append(head, line.file ? fileNode(line.file) : document.createTextNode(line.text));
  markSeen(item, seenAt);
  return item;
}

function renderHead(c) {
  $("customer-name").textContent = c.name;
  $("customer-state").textContent = stateText(c) + (c.agent ? ` · ${c.agent}` : "") +
    (c.rating ? ` · ${c.rating}` : "");
  $("customer-state").className = `state ${c.state}`;
  $("customer-waited").textContent = c.state === "waiting" && c.waitingSince ? t("hasWaited", { time: waited(c) }) : "";
  $("customer-typing").textContent = c.typing ? t("isTyping", { name: c.name }) : "";
  const info = document.createDocumentFragment();
  info.append(element("dt", t("address")), element("dd", c.id));
  for (const section of ["userInfo", "contactInfo", "requestInfo"]) {
    for (const [key, value] of Object.entries(c[section] || {})) {
      info.append(element("dt", `${section}.${key}`),
        element("dd", typeof value === "string" ? value : JSON.stringify(value)));
    }
  }
  $("customer-info").replaceChildren(info);
  $("waiting-actions").hidden = c.state !== "waiting";
  $("say").hidden = !mine(c);
  $("agent-actions").hidden = !mine(c);
}

function showConversation(id) {
  openId = id;
  $("conversation").hidden = !id;
  $("main").classList.toggle("reading", Boolean(id));
  history.replaceState(null, "", id ? `#customer=${encodeURIComponent(id)}` : location.pathname);
}

async function open(id, { keepText = false } = {}) {
  const other = id !== openId;
  if (other) stopTyping();
  showConversation(id);
  if (other && !keepText) {
    // What was typed for one customer never goes to the next.
    $("closing-text").value = t("closingText");
    $("say-text").value = "";
    $("note-text").value = "";
    $("action-error").textContent = "";
  }
  const found = await getJson("/api/conversation", { customer: id }).catch(() => null);
  if (openId !== id) return;
  if (!found) return closeConversation();
  customers.set(id, { ...customers.get(id), ...found.customer });
  renderHead(found.customer);
  $("lines").replaceChildren(...found.lines.map((line) => lineItem(line, found.customer.seenAt)));
  $("lines").scrollTop = $("lines").scrollHeight;
  renderList();
  if (unread(found.customer)) act("read");
}

function closeConversation() {
  const was = openId;
  stopTyping();
  showConversation(null);
  renderList();
  requestAnimationFrame(() =>
    $("customer-list").querySelector(`tr[data-id="${CSS.escape(was || "")}"] button`)?.focus());
}

// ---- What asks for the agent: the title, a sound, a desktop notification, the screen reader --

let chimes = 0;
let audio = null;
const soundOn = () => localStorage.getItem("quor-cs-sound") !== "off";

function chime() {
  chimes += 1;
  document.body.dataset.chimes = String(chimes);
  if (!soundOn()) return;
  try {
    audio = audio || new AudioContext();
    const tone = audio.createOscillator();
    const volume = audio.createGain();
    tone.frequency.value = 880;
    volume.gain.setValueAtTime(0.15, audio.currentTime);
    volume.gain.exponentialRampToValueAtTime(0.001, audio.currentTime + 0.4);
    tone.connect(volume).connect(audio.destination);
    tone.start();
    tone.stop(audio.currentTime + 0.4);
  } catch {
    // No audio device: the title and the notification still tell.
  }
}

function announce(text) {
  $("announce").textContent = text;
}

function attention(text) {
  announce(text);
  // One tab of a browser sounds and notifies: the one that follows the desk for the others.
  if (channel && !leading) return;
  if (soundOn()) chime();
  if (document.hidden && "Notification" in window && Notification.permission === "granted") {
    new Notification(t("title"), { body: text, tag: "quor-cs-console" });
  }
}

function showSound() {
  $("sound").setAttribute("aria-pressed", String(soundOn()));
  $("sound").textContent = soundOn() ? t("soundOn") : t("soundOff");
}

function showNotify() {
  const supported = "Notification" in window;
  $("notify").hidden = !supported || Notification.permission === "granted";
  $("notify").disabled = supported && Notification.permission === "denied";
}

// ---- Following the desk ----------------------------------------------------------------------

function apply(event) {
  if (event.inbox) {
    inbox.push(event.inbox);
    renderInbox();
  }
  if (event.gone) {
    customers.delete(event.gone);
    if (event.gone === openId) closeConversation();
    renderList();
  }
  if (event.typing && customers.has(event.typing.customer)) {
    const c = customers.get(event.typing.customer);
    c.typing = event.typing.typing;
    // An app that went away while typing never says it stopped: "typing…" lapses after 30 s.
    clearTimeout(c.typingLapse);
    if (c.typing) {
      c.typingLapse = setTimeout(() => {
        c.typing = false;
        if (c.id === openId) renderHead(c);
      }, 30000);
    }
    if (c.id === openId) renderHead(c);
  }
  if (event.seen && customers.has(event.seen.customer)) {
    const c = customers.get(event.seen.customer);
    c.seenAt = event.seen.at;
    if (c.id === openId) for (const item of $("lines").children) markSeen(item, c.seenAt);
  }
  if (event.read && event.read.agent === agent && customers.has(event.read.customer)) {
    customers.get(event.read.customer).read = event.read.upTo;
    renderList();
  }
  if (event.customer) {
    // Events carry a customer's information only when it changed: the rest is kept.
    const before = customers.get(event.customer.id);
    const c = { ...before, ...event.customer };
    customers.set(c.id, c);
    if (c.state === "waiting" && before?.state !== "waiting") {
      attention(t("announceWaiting", { name: c.name }));
    } else if (event.line?.who === "customer" && mine(c)) {
      attention(`${c.name}: ${event.line.text}`);
    } else if (!before) {
      announce(t("announceNew", { name: c.name }));
    }
    if (c.id === openId) {
      renderHead(c);
      if (event.line) {
        $("lines").append(lineItem(event.line, c.seenAt));
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
  agents = state.agents || [];
  groups = state.groups || [];
  replies = state.replies || [];
  renderList();
  renderInbox();
  renderPassTo();
  renderReplies();
  if (openId && customers.has(openId)) {
    open(openId, { keepText: true });
  } else if (openId) {
    // The desk no longer has this customer (it forgot them, or it restarted without them).
    closeConversation();
  }
  follow();
}

function setStatus(live) {
  $("desk-status").textContent = live ? t("deskOnline") : t("deskDown");
  $("desk-status").className = `status ${live ? "live" : "down"}`;
  $("banner").hidden = live;
  if (!live) $("banner").textContent = t("deskGone");
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

// ---- The agent -------------------------------------------------------------------------------

function showAgent() {
  $("login").hidden = Boolean(agent);
  $("agent").hidden = !agent;
  $("logout").hidden = !agent;
  $("agent").textContent = agent ? t("agentIs", { agent }) : "";
  $("login-title").textContent = setupCode ? t("makeFirst") : t("logIn");
  $("login-button").textContent = setupCode ? t("makeAndLogIn") : t("logIn");
  $("agent-password").autocomplete = setupCode ? "new-password" : "current-password";
  $("main").hidden = !agent;
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

function renderPassTo() {
  const options = [];
  for (const name of agents.filter((other) => other !== agent)) {
    const option = element("option", t("toAgent", { agent: name }));
    option.value = `agent:${name}`;
    options.push(option);
  }
  for (const group of groups) {
    const option = element("option", t("toGroup", { group: group.name || group.id }));
    option.value = `group:${group.id}`;
    options.push(option);
  }
  $("pass-to").replaceChildren(...options);
  $("pass").disabled = options.length === 0;
}

function renderReplies() {
  const first = element("option", replies.length ? t("cannedPick") : t("cannedNone"));
  first.value = "";
  const options = replies.map((reply, index) => {
    const option = element("option", `${index < 9 ? `${index + 1}. ` : ""}${reply.length > 60 ? `${reply.slice(0, 60)}…` : reply}`);
    option.value = String(index);
    return option;
  });
  $("reply-pick").replaceChildren(first, ...options);
}

// A canned reply into the text box, the customer's name filled in.
function insertReply(index) {
  const reply = replies[index];
  if (reply === undefined || $("say").hidden) return;
  const name = customers.get(openId)?.name || "";
  $("say-text").value = reply.replaceAll("{name}", name);
  $("say-text").focus();
}

// ---- Search ----------------------------------------------------------------------------------

let searching = 0;
async function search() {
  const words = $("search").value.trim();
  const ticket = ++searching;
  if (!words) {
    $("search-results").hidden = true;
    $("customer-table").hidden = !$("inbox").hidden;
    return;
  }
  const found = await getJson("/api/search", { q: words }).catch(() => ({ results: [] }));
  if (ticket !== searching) return;
  const items = found.results.map((result) => {
    const item = element("li");
    const name = result.onBoard ? element("button", result.name) : element("strong", result.name);
    if (result.onBoard) {
      name.type = "button";
      name.addEventListener("click", () => open(result.customer));
    }
    item.append(name, element("span", ` · ${new Date(result.time).toLocaleString(language)} · ${t(result.who)}`, "quiet"),
      element("div", result.text));
    return item;
  });
  if (!items.length) items.push(element("li", t("nothingFound")));
  $("search-results").replaceChildren(...items);
  $("search-results").hidden = false;
  $("customer-table").hidden = true;
  $("inbox").hidden = true;
}

// ---- The controls ----------------------------------------------------------------------------

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
// The agent's typing, as the customer's app hears it: "typing" when it begins (at most once per
// 5 s), "stopped" after 5 s without a key or when the agent leaves the customer; a sent line
// needs no "stopped".
const typing = { told: false, at: 0, customer: null, pause: null };

function typingTo(customer, now) {
  post("/api/act", { customer, do: "typing", typing: now }).catch(() => {});
}

function stopTyping({ tell = true } = {}) {
  clearTimeout(typing.pause);
  if (typing.told && tell) typingTo(typing.customer, false);
  typing.told = false;
}

$("say-text").addEventListener("input", () => {
  if (!openId || !mine(customers.get(openId) || {})) return;
  if (typing.customer !== openId) stopTyping();
  clearTimeout(typing.pause);
  typing.pause = setTimeout(stopTyping, 5000);
  if (typing.told || Date.now() - typing.at < 5000) return;
  Object.assign(typing, { told: true, at: Date.now(), customer: openId });
  typingTo(openId, true);
});
$("say").addEventListener("submit", async (event) => {
  event.preventDefault();
  const text = $("say-text").value;
  if (!text.trim()) {
    $("action-error").textContent = t("nothingToSend");
    return;
  }
  stopTyping({ tell: false });
  if (await act("say", { text })) $("say-text").value = "";
});
// A file for the customer: its bytes go to the desk as they are, its name in a header; the desk
// checks its type from its bytes, puts it on the server and sends it as the agent's line.
$("attach").addEventListener("click", () => $("attach-file").click());
$("attach-file").addEventListener("change", async () => {
  const file = $("attach-file").files[0];
  $("attach-file").value = "";
  if (!file || !openId) return;
  $("action-error").textContent = "";
  $("attach").disabled = true;
  $("attach").textContent = t("attaching");
  try {
    const response = await fetch(api("/api/attach", { customer: openId }), {
      method: "POST",
      headers: { "Content-Type": file.type || "application/octet-stream",
                 "X-File-Name": encodeURIComponent(file.name) },
      body: file,
    });
    const answer = await response.json().catch(() => ({ error: `${response.status}` }));
    if (answer.error) $("action-error").textContent = answer.error;
  } catch (error) {
    $("action-error").textContent = String(error);
  } finally {
    $("attach").disabled = false;
    $("attach").textContent = t("attach");
  }
});
$("note").addEventListener("submit", async (event) => {
  event.preventDefault();
  const text = $("note-text").value;
  if (!text.trim()) {
    $("action-error").textContent = t("nothingToNote");
    return;
  }
  if (await act("note", { text })) $("note-text").value = "";
});
$("reply-pick").addEventListener("change", () => {
  if ($("reply-pick").value !== "") insertReply(Number($("reply-pick").value));
  $("reply-pick").value = "";
});
$("take").addEventListener("click", () => act("take"));
$("no-agent").addEventListener("click", () => act("decline", { status: 2 }));
$("refuse").addEventListener("click", () => {
  $("refuse-text").textContent = t("refuseText", { name: customers.get(openId)?.name || "" });
  $("refuse-dialog").showModal();
});
$("refuse-dialog").addEventListener("close", () => {
  if ($("refuse-dialog").returnValue === "refuse") act("decline", { status: 3 });
  $("refuse").focus();
});
$("ask-rating").addEventListener("click", () => act("rate"));
$("invite").addEventListener("click", () => act("invite"));
$("back").addEventListener("click", () => act("back"));
$("pass").addEventListener("click", () => {
  const [kind, ...rest] = $("pass-to").value.split(":");
  const target = rest.join(":");
  act("pass", kind === "agent" ? { to: target } : { group: target });
});
$("end").addEventListener("click", () => act("end", { text: $("closing-text").value.trim() }));
$("back-to-list").addEventListener("click", closeConversation);
$("filter-state").addEventListener("change", renderList);
$("filter-group").addEventListener("change", renderList);
let searchTimer = 0;
$("search").addEventListener("input", () => {
  clearTimeout(searchTimer);
  searchTimer = setTimeout(search, 250);
});
function showView(list) {
  $("customer-table").hidden = !list;
  $("inbox").hidden = list;
  $("search-results").hidden = true;
  $("show-customers").classList.toggle("on", list);
  $("show-inbox").classList.toggle("on", !list);
  $("show-customers").setAttribute("aria-pressed", String(list));
  $("show-inbox").setAttribute("aria-pressed", String(!list));
}
$("show-customers").addEventListener("click", () => showView(true));
$("show-inbox").addEventListener("click", () => showView(false));
$("sound").addEventListener("click", () => {
  localStorage.setItem("quor-cs-sound", soundOn() ? "off" : "on");
  showSound();
});
$("notify").addEventListener("click", async () => {
  // Asked for on the agent's click only, never when the page loads.
  await Notification.requestPermission().catch(() => {});
  showNotify();
});
$("language").addEventListener("change", () => {
  language = $("language").value;
  localStorage.setItem("quor-cs-language", language);
  translatePage();
  showSound();
});

// Shortcuts, when the agent is not typing: n, t, r, e, /, Esc, Alt+1…9.
document.addEventListener("keydown", (event) => {
  if (!agent || event.ctrlKey || event.metaKey) return;
  const typing = event.target.closest?.("input, select, textarea");
  if (event.altKey) {
    if (/^[1-9]$/.test(event.key)) {
      event.preventDefault();
      insertReply(Number(event.key) - 1);
    }
    return;
  }
  if (event.key === "Escape") {
    if (typing) event.target.blur();
    else if (openId) closeConversation();
    return;
  }
  if (typing || $("refuse-dialog").open) return;
  const key = event.key;
  if (key === "n") {
    const next = [...customers.values()].filter((c) => c.state === "waiting").sort(compare)[0];
    if (next) open(next.id).then(() => $("take").focus());
  } else if (key === "t" && openId && !$("waiting-actions").hidden) {
    act("take");
  } else if (key === "r" && openId && !$("say").hidden) {
    $("say-text").focus();
  } else if (key === "e" && openId && !$("agent-actions").hidden) {
    $("end").focus();
  } else if (key === "/") {
    $("search").focus();
  } else {
    return;
  }
  event.preventDefault();
});

setInterval(() => {
  for (const row of $("customer-list").children) {
    const c = customers.get(row.dataset.id);
    if (c && c.state === "waiting") row.querySelector(".waited").textContent = waited(c);
  }
  const c = openId && customers.get(openId);
  if (c) $("customer-waited").textContent = c.state === "waiting" && c.waitingSince ? t("hasWaited", { time: waited(c) }) : "";
}, 1000);

translatePage();
showSound();
showNotify();
fetch("/api/me", { cache: "no-store" })
  .then((response) => response.json())
  .then((me) => me.agent ? loggedIn(me.agent) : loggedOut())
  .catch(() => loggedOut());
