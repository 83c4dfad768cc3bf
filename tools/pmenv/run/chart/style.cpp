#include "chart/style.h"

// Every figure differs from its neighbours in more than its colour: lines in their dashes, areas in their hatching.
const char* const kChartStyle = R"css(
:root {
  color-scheme: light dark;
  --paper: #ffffff; --ink: #1b2530; --quiet: #5c6875; --rule: #dfe4e9; --grid: #e9edf1; --watched: #fafbfc;
  --spoiled: #b42318; --spoiled-ground: #fdf1ef; --clean: #17693a; --clean-ground: #eef7f1;
  --unsure: #7a5200; --unsure-ground: #fbf5e6;
  --blue: #2a6cb0; --orange: #d98a1f; --red: #c8414b; --violet: #7d55b8; --brown: #7b5e45; --grey: #aab4be; --dark: #4a5663;
}
@media (prefers-color-scheme: dark) {
  :root {
    --paper: #12171c; --ink: #e4e9ee; --quiet: #98a4b0; --rule: #2c353e; --grid: #222a32; --watched: #161c22;
    --spoiled: #ff8a7d; --spoiled-ground: #2b1917; --clean: #6fce94; --clean-ground: #14241b;
    --unsure: #e8bd63; --unsure-ground: #272013;
    --blue: #62a3e4; --orange: #e6a94f; --red: #e8757d; --violet: #ab8be0; --brown: #b8977a; --grey: #66727e; --dark: #a9b5c0;
  }
}
* { box-sizing: border-box; }
html { -webkit-text-size-adjust: 100%; text-size-adjust: 100%; }
body {
  margin: 0; background: var(--paper); color: var(--ink);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Helvetica Neue", "Noto Sans", "DejaVu Sans", sans-serif;
  font-variant-numeric: tabular-nums;
}
main { max-width: 1240px; margin: 0 auto; padding: 20px; }
h1, h2, h3, p, ul, ol, dl, figure, pre { margin: 0; padding: 0; }
ul, ol { list-style: none; }
h2 { margin: 40px 0 12px; padding-bottom: 4px; border-bottom: 1px solid var(--rule); font-size: 21px; font-weight: 600; }
h3 { font-size: 16px; font-weight: 600; }
p, li, td, dd, h1, h2, h3 { overflow-wrap: anywhere; }
.quiet, .about { color: var(--quiet); }

.verdict { padding: 18px 22px 16px; border-left: 7px solid; border-radius: 5px; }
.verdict .outcome { margin: 0; padding: 0; border: 0; font-size: 30px; line-height: 1.2; font-weight: 700; }
.verdict .outcome svg { width: 26px; height: 26px; margin-right: 10px; vertical-align: -3px; }
.verdict .reason { margin-top: 4px; font-size: 19px; }
.verdict .watched, .verdict .remark { margin-top: 4px; color: var(--quiet); }
.spoiled-run { background: var(--spoiled-ground); border-color: var(--spoiled); }
.clean-run { background: var(--clean-ground); border-color: var(--clean); }
.unsure-run { background: var(--unsure-ground); border-color: var(--unsure); }
.spoiled-run .outcome, .spoiled-text { color: var(--spoiled); }
.clean-run .outcome, .clean-text { color: var(--clean); }
.unsure-run .outcome, .unsure-text { color: var(--unsure); }
.icon { fill: none; stroke: currentColor; stroke-width: 2.6; stroke-linecap: round; stroke-linejoin: round; }

.findings li { margin: 0 0 20px; }
.findings h3 { font-size: 15px; }
.findings .sign { display: inline-block; min-width: 1.3em; font-weight: 700; }
.findings p { max-width: 85ch; }
section + article, article + article { margin-top: 56px; }
.marks { display: none; margin-top: 6px; }
a { color: inherit; }
.advice::before { content: "→ "; color: var(--quiet); }

.tables { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 410px), 1fr)); gap: 8px 48px; align-items: start; }
table { width: 100%; border-collapse: collapse; font-size: 15px; }
caption { padding: 4px 0; text-align: left; color: var(--quiet); }
th, td { padding: 4px 8px 4px 0; border-bottom: 1px solid var(--rule); text-align: left; vertical-align: baseline; }
thead th { color: var(--quiet); font-weight: 400; }
tbody th { font-weight: 400; }
.number { text-align: right; white-space: nowrap; }
td:last-child { padding-right: 0; white-space: nowrap; }
th.number, td.number { padding-right: 16px; }
.over th, .over td { font-weight: 600; }

figure { margin: 26px 0 0; }
.keys { display: flex; flex-wrap: wrap; gap: 0 22px; font-size: 14px; }
.keys .key { margin-right: 7px; vertical-align: -1px; }
.keys .quiet { white-space: nowrap; }
.about { max-width: 100ch; font-size: 14px; }
.none { margin-top: 26px; font-size: 15px; color: var(--quiet); }
.none b { color: var(--ink); font-weight: 600; }
.frame { display: grid; grid-template-columns: 64px minmax(0, 1fr); }
.findings .frame { margin: 5px 0 4px; }
svg { display: inline-block; overflow: visible; }
.frame svg { display: block; width: 100%; }
.frame svg svg { overflow: hidden; }
.hatchings { position: absolute; }
text { font-size: 12px; fill: var(--quiet); }
.flag { font-size: 13px; fill: var(--ink); }
.limit { stroke: var(--ink); stroke-width: 1; stroke-dasharray: 7 4; }
text.limit, .flag { stroke: var(--paper); stroke-width: 3px; stroke-dasharray: none; paint-order: stroke; stroke-linejoin: round; }
text.limit { fill: var(--ink); }
.watched { fill: var(--watched); }
.grid { stroke: var(--grid); }
.base { stroke: var(--quiet); }
.mark { stroke: var(--ink); stroke-dasharray: 1 3; }
rect.spoiled { fill: var(--spoiled); fill-opacity: .13; stroke: var(--spoiled); stroke-opacity: .35; stroke-width: 1; }
.strip rect.spoiled { fill: url(#hatch-spoiled); fill-opacity: 1; stroke-opacity: 1; }
.strip rect.told { fill: var(--grey); stroke: var(--dark); }
.strip rect.watched { stroke: var(--rule); }

.line { fill: none; stroke-width: 1.8; vector-effect: non-scaling-stroke; stroke-linejoin: round; }
.band { stroke: none; fill-opacity: .2; }
.line.worst, .line.engine1 { stroke: var(--blue); }
.line.median, .line.engine2 { stroke: var(--orange); stroke-dasharray: 6 3; }
.line.engine3 { stroke: var(--violet); stroke-dasharray: 2 3; }
.line.engine4 { stroke: var(--dark); stroke-dasharray: 10 3 2 3; }
.band.worst, .band.engine1 { fill: var(--blue); }
.band.median, .band.engine2 { fill: var(--orange); }
.band.engine3 { fill: var(--violet); }
.band.engine4 { fill: var(--dark); }
.area { stroke: var(--paper); stroke-width: .6; vector-effect: non-scaling-stroke; }
.area.running, .ground.running { fill: var(--blue); }
.area.others { fill: url(#hatch-others); }
.area.stolen { fill: url(#hatch-stolen); }
.area.waiting { fill: url(#hatch-waiting); }
.area.throttled { fill: url(#hatch-throttled); }
.area.blocked { fill: url(#hatch-blocked); }
.area.stopped { fill: url(#hatch-stopped); }
.ground.others { fill: var(--grey); }
.ground.stolen { fill: var(--violet); }
.ground.waiting { fill: var(--orange); }
.ground.throttled { fill: var(--red); }
.ground.blocked { fill: var(--brown); }
.ground.stopped { fill: var(--dark); }
.ground.spoiled { fill: var(--spoiled); fill-opacity: .55; }
.hatch { stroke: var(--paper); stroke-opacity: .75; stroke-width: 1; fill: none; }

dl { display: grid; grid-template-columns: minmax(9em, max-content) minmax(0, 1fr); gap: 3px 20px; font-size: 15px; }
dt { color: var(--quiet); }
dd { margin: 0; }
details { margin-top: 20px; }
summary { cursor: pointer; }
pre { max-height: 320px; margin-top: 8px; padding: 10px; overflow: auto; border: 1px solid var(--rule); font-size: 12px; }
footer { margin-top: 40px; padding-top: 8px; border-top: 1px solid var(--rule); font-size: 14px; color: var(--quiet); }

@media screen and (max-width: 760px) {
  main { padding: 12px; }
  .minor, .frame.flags { display: none; }
  .plot .area.others { fill: url(#hatch-others-narrow); }
  .plot .area.stolen { fill: url(#hatch-stolen-narrow); }
  .plot .area.waiting { fill: url(#hatch-waiting-narrow); }
  .plot .area.throttled { fill: url(#hatch-throttled-narrow); }
  .plot .area.blocked { fill: url(#hatch-blocked-narrow); }
  .plot .area.stopped { fill: url(#hatch-stopped-narrow); }
  .marks { display: block; }
  .frame { grid-template-columns: 56px minmax(0, 1fr); }
  .verdict { padding: 14px 16px; }
  .verdict .outcome { font-size: 25px; }
  .verdict .reason { font-size: 17px; }
  dl { grid-template-columns: minmax(0, 1fr); }
  dd { margin-bottom: 6px; }
}
@media print {
  @page { margin: 14mm; }
  :root {
    color-scheme: light;
    --paper: #ffffff; --ink: #000000; --quiet: #444c55; --rule: #c9cfd5; --grid: #e3e7eb; --watched: #ffffff;
    --spoiled: #a01b12; --spoiled-ground: #ffffff; --clean: #115c31; --clean-ground: #ffffff;
    --unsure: #6b4700; --unsure-ground: #ffffff;
    --blue: #2a6cb0; --orange: #d98a1f; --red: #c8414b; --violet: #7d55b8; --brown: #7b5e45; --grey: #aab4be; --dark: #4a5663;
  }
  body { font-size: 13px; }
  main { max-width: none; padding: 0; }
  * { print-color-adjust: exact; -webkit-print-color-adjust: exact; }
  figure, .findings li, .verdict, tr { break-inside: avoid; }
  h2, h3 { break-after: avoid; }
  .raw { display: none; }
  table { font-size: 12px; }
  .tables { grid-template-columns: 1fr 1fr; gap: 24px; }
}
)css";
