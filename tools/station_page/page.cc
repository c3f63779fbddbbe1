// The station page itself: one document with its style and script inline,
// since the station computer may have no way to the internet.  The script
// asks /status.json every refresh period and rewrites the table in place;
// each station's row carries the class "state-<state>" (up, quiet,
// archive-failing, down, unregistered), which the colours hang on.  The
// plots are asked again once a minute, with a query that defeats caches.
#include <string>

#include "PageServer.h"

namespace {

const char kPage[] = R"html(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>Stations</title>
<style>
body { font: 14px sans-serif; margin: 1em; color: #222; }
table { border-collapse: collapse; margin-bottom: 1em; }
th, td { padding: 2px 8px; text-align: right; border-bottom: 1px solid #ddd; }
th { background: #eee; } td.name, td.text { text-align: left; }
tr.station td { font-weight: bold; }
tr.channel td { font-size: 12px; color: #555; }
.state-up td.state { background: #c8f0c8; }
.state-quiet td.state { background: #ffe08a; }
.state-archive-failing td.state { background: #ffb060; }
.state-down td.state, .state-unregistered td.state { background: #ff9090; }
#stale { color: #b00; } .plot { margin: 0.5em 0 1.5em; } .plot img { max-width: 100%; }
</style></head><body>
<h1>Stations</h1>
<p>As of <span id="time">-</span> <span id="stale"></span></p>
<table><thead><tr><th>station</th><th>port</th><th>state</th><th>last sample</th><th>age</th>
<th>rate (/s)</th><th>samples</th><th>bad</th><th>lost</th><th>clients</th><th>archive</th></tr></thead>
<tbody id="stations"></tbody></table>
<h2>The last hour</h2><div id="plots"></div>
<script>
"use strict";
const refresh = @REFRESH@, plotPeriod = 60000;
function cell(row, text, cls) {
  const td = row.insertCell(); td.textContent = text; if (cls) td.className = cls; return td;
}
function age(a) { return a === null || a === undefined || a < 0 ? "-" : a.toFixed(1) + " s"; }
function showStation(body, s) {
  const row = body.insertRow();
  row.className = "station state-" + s.state; row.dataset.station = s.station;
  cell(row, s.station, "name"); cell(row, s.port, "text"); cell(row, s.state, "state text");
  if (s.reason !== undefined) { const td = cell(row, s.reason, "text"); td.colSpan = 8; return; }
  cell(row, s.last_sample || "-", "text"); cell(row, age(s.last_sample_age));
  cell(row, s.rate_10s.toFixed(1)); cell(row, s.samples); cell(row, s.bad); cell(row, s.lost);
  cell(row, s.clients); cell(row, s.archive_file.split("/").pop() || "-", "text");
  for (const c of s.channels) {
    const r = body.insertRow(); r.className = "channel state-" + s.state;
    cell(r, ""); cell(r, "channel " + c.channel, "text"); cell(r, ""); cell(r, "");
    cell(r, age(c.last_sample_age)); cell(r, c.rate_10s.toFixed(1)); cell(r, c.samples);
    for (let k = 0; k < 4; ++k) cell(r, "");
  }
}
function plotFor(name) {
  let div = document.getElementById("plot-" + name);
  if (div) return div;
  div = document.createElement("div"); div.className = "plot"; div.id = "plot-" + name;
  const title = document.createElement("h3"); title.textContent = name;
  const img = document.createElement("img"); img.alt = "the last hour of " + name;
  img.onerror = function () { title.textContent = name + ": no plot"; img.hidden = true; };
  img.onload = function () { title.textContent = name; img.hidden = false; };
  div.append(title, img); document.getElementById("plots").append(div);
  return div;
}
function loadPlots(stations) {
  for (const s of stations) {
    const img = plotFor(s.station).querySelector("img");
    const due = !img.dataset.at || Date.now() - Number(img.dataset.at) >= plotPeriod;
    if (due) { img.dataset.at = Date.now(); img.src = "/plot/" + encodeURIComponent(s.station) + ".png?t=" + Date.now(); }
  }
}
async function update() {
  try {
    const reply = await fetch("/status.json", {cache: "no-store"});
    if (!reply.ok) throw new Error(reply.status + " " + reply.statusText);
    const doc = await reply.json();
    const body = document.createElement("tbody"); body.id = "stations";
    for (const s of doc.stations) showStation(body, s);
    document.getElementById("stations").replaceWith(body);
    document.getElementById("time").textContent = doc.time;
    document.getElementById("stale").textContent = "";
    loadPlots(doc.stations);
  } catch (e) {
    document.getElementById("stale").textContent = "(the page's server did not answer: " + e.message + ")";
  }
  setTimeout(update, refresh);
}
update();
</script></body></html>
)html";

}  // namespace

std::string heron::pageHtml(double refreshSeconds) {
  std::string page = kPage;
  const std::string mark = "@REFRESH@";
  page.replace(page.find(mark), mark.size(), std::to_string(static_cast<long>(refreshSeconds * 1000)));
  return page;
}
