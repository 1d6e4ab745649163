"use strict";

// What comes from clients is put on the page as text, never as markup.

const byId = (id) => document.getElementById(id);

function element(name, className, ...content) {
  const made = document.createElement(name);
  if (className) made.className = className;
  made.append(...content);
  return made;
}

const cell = (content, className) => element("td", className, content);
const code = (text) => element("code", "", text);
const plural = (count, one) => count.toLocaleString("en") + " " + one + (count === 1 ? "" : "s");

// Requests

const mostRequests = 100;
let run = "";
let lastNumber = 0;

function timeOf(seconds) {
  return new Date(seconds * 1000).toLocaleTimeString("en-GB");
}

function tookText(milliseconds) {
  if (milliseconds < 10) return milliseconds.toFixed(1) + " ms";
  return milliseconds < 1000 ? Math.round(milliseconds) + " ms" : (milliseconds / 1000).toFixed(1) + " s";
}

// A fault may leave nothing that deserves to be called a status.
function statusCell(request) {
  const kind = request.fault.split("=")[0];
  const answered = !["reset", "cut", "silence"].includes(kind);
  const text = answered ? String(request.status) : kind;
  const made = cell(text, !answered || request.status >= 500 ? "bad" : request.status >= 400 ? "warn" : "good");
  if (request.fault) made.append(element("span", "fault", answered && kind === "delay" ? "late" : "fault"));
  return made;
}

// A service that was started anew counts from the beginning.
function beginRun(name) {
  if (name === run) return;
  run = name;
  lastNumber = 0;
  byId("request-rows").replaceChildren();
}

function showRequests(news) {
  beginRun(news.run);
  const rows = byId("request-rows");
  const mark = lastNumber > 0 ? "new" : "";  // not what was there before the page
  for (const request of news.requests) {
    if (request.number <= lastNumber) continue;
    lastNumber = request.number;
    const row = element("tr", mark, cell(timeOf(request.time)), statusCell(request),
      cell(request.method + " " + request.path, "path"), cell(tookText(request.milliseconds), "number"));
    rows.prepend(row);
  }
  while (rows.childElementCount > mostRequests) rows.lastElementChild.remove();
}

// What there is

function showDatacenters(overview) {
  byId("datacenters").replaceChildren(...overview.datacenters.map((datacenter) => {
    const instances = datacenter.instances.map((instance) => {
      const line = element("li", "", instance.url + " ");
      if (instance.isThis) line.append(element("span", "mark", "this one"));
      else if (instance.silentSeconds > 7) line.append(element("span", "warn", "silent for " + instance.silentSeconds + " s"));
      return line;
    });
    if (instances.length === 0) instances.push(element("li", "quiet", "No instance runs there."));
    return element("li", "", element("b", "", datacenter.name), " ", code(datacenter.id), element("ul", "", ...instances));
  }));
}

// In minutes, but for the last.
function tokenAge(from, below) {
  if (below === 0) return "over " + from / 3600 + " h";
  return from === 0 ? "under " + below / 60 + " min" : from / 60 + " to " + below / 60 + " min";
}

function showTokens(tokens) {
  const most = Math.max(1, ...tokens.map((age) => age.users + age.clients));
  byId("token-rows").replaceChildren(...tokens.map((age, i) => {
    const bar = element("span", "bar");
    bar.style.inlineSize = 100 * (age.users + age.clients) / most + "%";
    bar.hidden = age.users + age.clients === 0;
    return element("tr", "", cell(tokenAge(i === 0 ? 0 : tokens[i - 1].below, age.below)), cell(bar, "bars"),
      cell(String(age.users), "number"), cell(String(age.clients), "number"));
  }));
}

const shownText = (shown, all) => shown < all ? "the newest " + shown + " of " + all.toLocaleString("en") : "";

function showOverview(overview) {
  beginRun(overview.run);
  const nameOf = new Map(overview.datacenters.map((each) => [each.id, each.name]));
  const datacenter = (id) => cell(nameOf.get(id) || id);
  const own = overview.datacenters.flatMap((each) => each.instances).find((each) => each.isThis);
  byId("address").textContent = own ? own.url : "";
  byId("client-count").textContent = overview.clientCount.toLocaleString("en");
  byId("service-count").textContent = overview.serviceCount.toLocaleString("en");
  byId("token-count").textContent =
    overview.tokens.reduce((sum, age) => sum + age.users + age.clients, 0).toLocaleString("en");
  byId("instance-count").textContent = overview.datacenters.reduce((sum, each) => sum + each.instances.length, 0);
  showDatacenters(overview);
  showTokens(overview.tokens);
  byId("clients-shown").textContent = shownText(overview.clients.length, overview.clientCount);
  byId("client-rows").replaceChildren(...overview.clients.map((client) =>
    element("tr", "", cell(client.description || "–"), cell(code(client.id)), datacenter(client.datacenter),
      cell(String(client.services), "number"))));
  byId("services-shown").textContent = shownText(overview.services.length, overview.serviceCount);
  byId("service-rows").replaceChildren(...overview.services.map((service) =>
    element("tr", "", cell(service.name), cell(service.namespace), cell(service.url),
      datacenter(service.datacenter), cell(code(service.client)))));
  showFaults(overview.faults);
}

// Faults

const switches = [...document.querySelectorAll("[role=switch]")];
const pathNames = new Map([...byId("fault-path").options].map((option) => [option.value, option.text]));

function showFaults(faults) {
  for (const each of switches) {
    const own = faults.filter((fault) => fault.fault.split("=")[0] === each.dataset.kind);
    each.setAttribute("aria-checked", String(own.length > 0));
    each.parentElement.querySelector("p").textContent = own.map((fault) => {
      const argument = fault.fault.split("=")[1];
      const words = [fault.count === 1 ? "next call" : "next " + plural(fault.count, "call"),
        pathNames.get(fault.path) || fault.path];
      if (argument) words.unshift(each.dataset.kind === "delay" ? argument + " ms" : argument);
      return words.join(" · ");
    }).join("; ");
  }
}

function tellFailure(text) {
  byId("fault-failure").hidden = text === "";
  byId("fault-failure").textContent = text;
}

async function flip(event) {
  const own = event.currentTarget;
  const kind = own.dataset.kind;
  const on = own.getAttribute("aria-checked") !== "true";
  const input = own.parentElement.querySelector("input");
  const count = byId("fault-count");
  if (on && ![count, input].every((field) => !field || field.reportValidity())) return;
  const wanted = on
    ? { fault: kind + (input ? "=" + input.valueAsNumber : ""), on, path: byId("fault-path").value, count: count.valueAsNumber }
    : { fault: kind, on };
  try {
    const answer = await fetch(new URL("/page/faults", location.origin), {
      method: "POST",
      headers: { "Content-Type": "application/json" },
      body: JSON.stringify(wanted),
    });
    const body = await answer.json();
    if (!answer.ok) throw new Error(body.error_description || "The service answered " + answer.status + ".");
    showFaults(body);
    tellFailure("");
  } catch (failure) {
    tellFailure("That did not work: " + failure.message);
  }
}

for (const each of switches) each.addEventListener("click", flip);

// The stream. The service says something every few seconds, so that silence is a cut.

const longestSilence = 10000;
const retryAfter = 3000;
let source = null;
let heard = 0;
let retry = 0;

function showStream(state, text) {
  const shown = byId("stream");
  if (shown.dataset.state === state && shown.textContent === text) return;
  shown.dataset.state = state;
  shown.textContent = text;
  for (const each of switches) each.disabled = state === "cut";
}

function cut() {
  if (source) source.close();
  source = null;
  showStream("cut", "Cut off at " + new Date().toLocaleTimeString("en-GB") + "; trying again");
  clearTimeout(retry);
  retry = setTimeout(connect, retryAfter);
}

function connect() {
  source = new EventSource(new URL("/page/events", location.origin));
  heard = Date.now();
  const listen = (name, show) => source.addEventListener(name, (event) => {
    heard = Date.now();
    showStream("live", "Live");
    show(JSON.parse(event.data));
  });
  listen("requests", showRequests);
  listen("overview", showOverview);
  source.addEventListener("error", cut);
}

setInterval(() => { if (source && Date.now() - heard > longestSilence) cut(); }, 1000);
addEventListener("pagehide", () => { if (source) source.close(); });
connect();
