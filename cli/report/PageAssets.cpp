// How a report looks, and the script that shows values where the reader points.
#include "report/Page.h"

namespace kivmp4::report {

const std::string_view kPageStyle = R"css(
body { margin: 0 auto; max-width: 68rem; padding: 1.5rem 1.25rem 4rem; background: var(--page); color: var(--ink);
  font: 15px/1.5 system-ui, sans-serif; }
h1 { font-size: 1.5rem; margin: 0 0 .25rem; overflow-wrap: anywhere; }
h2 { font-size: 1.15rem; margin: 2.5rem 0 .25rem; }
p { margin: .35rem 0; max-width: 62rem; }
.facts { color: var(--faint); }
.facts span { display: inline-block; margin-right: 1.5rem; }
.caption, .hover { color: var(--faint); font-size: .87rem; }
.hover { min-height: 1.5em; margin: 0 0 .5rem; font-variant-numeric: tabular-nums; }
.verdict { border-left: 3px solid var(--c0); padding-left: .75rem; }
figure { margin: .75rem 0 0; padding-left: 64px; }
.phases { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(24rem, 100%), 1fr)); gap: .25rem 2rem; }
ul.remarks { list-style: none; margin: .5rem 0; padding: 0; }
ul.remarks li { margin: .5rem 0; padding-left: .75rem; border-left: 3px solid var(--line); }
ul.remarks li.error, ul.remarks li.warning { border-color: var(--warn); }
ul.remarks li.good { border-color: var(--c2); }
.scroll { overflow-x: auto; }
table { border-collapse: collapse; font-size: .87rem; font-variant-numeric: tabular-nums; margin: .5rem 0; }
th { text-align: left; color: var(--faint); font-weight: 500; }
th, td { padding: .25rem 1.25rem .25rem 0; border-bottom: 1px solid var(--line); vertical-align: top; white-space: nowrap; }
td.wide { white-space: normal; min-width: 16rem; }
.number { text-align: right; }
.severity-error, .severity-warning { color: var(--warn); font-weight: 600; }
details { margin-left: 1.1rem; font: 13px/1.6 ui-monospace, monospace; }
details.top { margin-left: 0; font: inherit; }
details div { margin-left: 1.1rem; } summary { cursor: pointer; }
.place { color: var(--faint); } .problem { color: var(--warn); }
footer { margin-top: 3rem; color: var(--faint); font-size: .87rem; }
a { color: inherit; }
)css";

const std::string_view kPageScript = R"js(
"use strict";
const scaled = (value, base, units) => {
  let unit = 0;
  for (; Math.abs(value) >= base && unit + 1 < units.length; unit++) value /= base;
  return +value.toPrecision(4) + " " + units[unit];
};
const labels = {
  time: s => s < 1 ? +(s * 1e3).toPrecision(3) + " ms"
    : (s >= 3600 ? Math.floor(s / 3600) + ":" : "") + String(Math.floor(s / 60) % 60).padStart(s >= 3600 ? 2 : 1, "0")
      + ":" + (s % 60).toFixed(2).padStart(5, "0"),
  bytes: value => scaled(value, 1024, ["bytes", "KiB", "MiB", "GiB", "TiB"]),
  rate: value => scaled(value, 1000, ["b/s", "kb/s", "Mb/s", "Gb/s", "Tb/s"]),
};
for (const plot of document.querySelectorAll("svg.plot")) {
  const series = [...plot.querySelectorAll("[data-v]")].map(path => (
    { name: path.dataset.name, label: labels[path.dataset.unit], values: path.dataset.v.split(",").map(Number) }));
  if (!series.length || !labels[plot.dataset.unit]) continue;
  const said = document.createElement("p");
  said.className = "hover";
  said.textContent = "Point at the picture for values.";
  plot.after(said);
  const cursor = document.createElementNS(plot.namespaceURI, "line");
  cursor.setAttribute("class", "cursor");
  cursor.setAttribute("y2", plot.getAttribute("height") - 22);
  plot.append(cursor);
  plot.addEventListener("pointermove", event => {
    const box = plot.getBoundingClientRect();
    const share = Math.min(Math.max((event.clientX - box.left) / box.width, 0), 0.999999);
    const low = Number(plot.dataset.low), high = Number(plot.dataset.high);
    for (const end of ["x1", "x2"]) cursor.setAttribute(end, 100 * share + "%");
    said.textContent = [labels[plot.dataset.unit](low + share * (high - low)),
      ...series.map(({ name, label, values }) => {
        const value = values[Math.floor(share * values.length)];
        return value >= 0 ? name + " " + label(value) : "";
      }).filter(Boolean)].join("   ");
  });
}
)js";

}  // namespace kivmp4::report
