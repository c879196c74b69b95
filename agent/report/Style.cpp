#include "agent/report/Style.h"

namespace Agent {

// The eight port colours are told apart by people who see few colours too, and each has a contrast
// of at least 3 to 1 with what it is drawn on, in either mode (WCAG 2.2 section 1.4.11).
char const* const pageStyle = R"css(
:root {
  color-scheme: light dark;
  --page: #fff; --ink: #1b1f24; --faint: #57606a; --rule: #d0d7de; --lane: #f6f8fa; --chip: #fff;
  --accent: #0550ae; --alarm: #b3261e; --alarm-page: #fff4f2; --router: #ddf4ff;
  --p0: #0969da; --p1: #bc4c00; --p2: #1a7f37; --p3: #8250df;
  --p4: #bf3989; --p5: #0c7b83; --p6: #8a6100; --p7: #57606a;
}
@media screen and (prefers-color-scheme: dark) {
  :root {
    --page: #0d1117; --ink: #e6edf3; --faint: #9aa4af; --rule: #3d444d; --lane: #151b23;
    --chip: #0d1117; --accent: #79c0ff; --alarm: #ff8a80; --alarm-page: #2a1715; --router: #12273d;
    --p0: #58a6ff; --p1: #f0883e; --p2: #56d364; --p3: #bc8cff;
    --p4: #f778ba; --p5: #39c5cf; --p6: #d9b343; --p7: #a5b0bb;
  }
}
.p0 { --port: var(--p0) } .p1 { --port: var(--p1) } .p2 { --port: var(--p2) }
.p3 { --port: var(--p3) } .p4 { --port: var(--p4) } .p5 { --port: var(--p5) }
.p6 { --port: var(--p6) } .p7 { --port: var(--p7) } .querier { --port: var(--faint) }
html { background: var(--page); color: var(--ink); font: 15px/1.5 system-ui, sans-serif }
body { max-width: 1240px; margin: 0 auto; padding: 1rem 1.25rem 4rem }
h1 { font-size: 1.6rem; line-height: 1.2; margin: .5rem 0 .25rem; overflow-wrap: anywhere }
h2 { font-size: 1.3rem; margin: 2.25rem 0 .5rem; border-bottom: 1px solid var(--rule) }
h3 { font-size: 1.05rem; margin: 1.5rem 0 .25rem }
p { margin: .4rem 0; max-width: 75ch }
a { color: var(--accent) }
:focus-visible { outline: 3px solid var(--accent); outline-offset: 2px }
.skip { position: absolute; left: -99rem }
.skip:focus { position: static }
.faint { color: var(--faint) }
nav ul { list-style: none; padding: 0; display: flex; flex-wrap: wrap; gap: .25rem 1.25rem }
.sums { display: flex; flex-wrap: wrap; gap: .5rem; margin: 1rem 0; padding: 0 }
.sums div { border: 1px solid var(--rule); border-radius: 8px; padding: .35rem .9rem;
  background: var(--lane) }
.sums dt { font-size: .8rem; color: var(--faint) }
.sums dd { margin: 0; font-size: 1.35rem; font-variant-numeric: tabular-nums }
.warnings { padding: 0; list-style: none }
.warnings li { border-left: 4px solid var(--alarm); background: var(--alarm-page);
  padding: .4rem .8rem; margin: .4rem 0; overflow-wrap: anywhere }
.warnings strong { color: var(--alarm) }
figure { margin: .75rem 0 }
figcaption { color: var(--faint); font-size: .9rem; margin-bottom: .4rem; max-width: 100ch }
.scroll { overflow-x: auto }
details { margin: .75rem 0 }
summary { cursor: pointer; font-weight: 600 }
table { border-collapse: collapse; font-size: .87rem; font-variant-numeric: tabular-nums }
caption { text-align: left; color: var(--faint); padding: .25rem 0 }
th, td { text-align: left; padding: .15rem .7rem .15rem 0; border-bottom: 1px solid var(--rule);
  vertical-align: top; overflow-wrap: anywhere }
th { white-space: nowrap; font-weight: 600 }
.n { text-align: right }
svg { display: block; width: 100%; min-width: 760px; height: auto; color: var(--ink);
  font: 12px system-ui, sans-serif }
svg text { fill: var(--ink) }
svg .faint { fill: var(--faint) }
svg .group { font-size: 14px; font-weight: 700 }
.lane { fill: var(--lane); stroke: var(--rule) }
.chip { fill: var(--chip); stroke: var(--rule); stroke-width: 1.2 }
.chip.router { fill: var(--router); stroke: var(--accent) }
.chip.silent { stroke-dasharray: 4 3 }
.port { font-weight: 700 }
svg .torouter { fill: var(--accent); font-weight: 700 }
.edge, .head { fill: var(--port) }
.line { fill: none; stroke: var(--port); stroke-width: 2 }
.own { fill: none; stroke: var(--faint); stroke-width: 1.3; stroke-dasharray: 3 4 }
.cross { fill: none; stroke: var(--alarm); stroke-width: 2.4 }
.grid { stroke: var(--rule); stroke-width: 1 }
svg .tick { fill: var(--faint); font-size: 11px; text-anchor: middle }
.bar { fill: var(--port); fill-opacity: .28; stroke: var(--port) }
.record { fill: var(--page); stroke: var(--port); stroke-width: 1.4 }
.inbar { font-size: 11px }
.count { fill: none; stroke-width: 2 }
.memberships { stroke: var(--p0) }
.records { stroke: var(--p1); stroke-dasharray: 6 3 }
@media print {
  :root { color-scheme: light }
  html { font-size: 11px }
  nav, .skip { display: none }
  body { max-width: none; padding: 0 }
  svg { min-width: 0; print-color-adjust: exact; -webkit-print-color-adjust: exact }
  .scroll { overflow: visible }
  h2, h3, summary, figcaption { break-after: avoid }
  .warnings li, tr { break-inside: avoid }
  details:not(.vast)::details-content { content-visibility: visible; display: block }
}
)css";

}  // namespace Agent
