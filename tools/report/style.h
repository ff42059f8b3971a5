// How the report looks, light and dark, wide and narrow.
#ifndef VELMORA_TOOLS_REPORT_STYLE_H
#define VELMORA_TOOLS_REPORT_STYLE_H

#include <string_view>

namespace tool {

inline constexpr std::string_view pageStyle = R"css(
:root { color-scheme: light dark; --page: #f5f6f8; --card: #ffffff; --ink: #1b2330;
  --soft: #5b6675; --line: #dfe3e9; --accent: #3056d3; --now: #c2264b; --bad: #b3261e;
  --red: #f3b3ae; --amber: #f7d58a; --green: #a9dfb4; --blue: #b0cdf8; --teal: #a3dcda;
  --violet: #d0bdf4; --pink: #f4bcd9; --grey: #d5dae1; }
@media (prefers-color-scheme: dark) { :root { --page: #10141b; --card: #1a202a; --ink: #e8ecf2;
  --soft: #a3aebd; --line: #303947; --accent: #8fb0ff; --now: #ff7a98; --bad: #ff8a80;
  --red: #8a3430; --amber: #7d5a10; --green: #246b3a; --blue: #2a5596; --teal: #1d6966;
  --violet: #5d4496; --pink: #83366a; --grey: #4a5463; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink);
  font: 15px/1.5 system-ui, "Segoe UI", "Liberation Sans", Arial, sans-serif; }
main { max-width: 1040px; margin: 0 auto; padding: 28px 20px 48px; }
h1 { margin: 0; font-size: 28px; line-height: 1.2; overflow-wrap: anywhere; }
h2 { margin: 0 0 2px; font-size: 19px; }
h3 { margin: 22px 0 4px; font-size: 16px; }
p { margin: 2px 0 10px; color: var(--soft); }
section { margin-top: 18px; padding: 18px 20px; background: var(--card);
  border: 1px solid var(--line); border-radius: 12px; }
section.bad { border-color: var(--bad); }
.bad h2 { color: var(--bad); }
dl { display: grid; grid-template-columns: repeat(auto-fit, minmax(128px, 1fr)); gap: 10px;
  margin: 18px 0 0; }
dl div { padding: 10px 14px; background: var(--card); border: 1px solid var(--line);
  border-radius: 10px; }
dt { color: var(--soft); font-size: 13px; }
dd { margin: 0; font-size: 18px; font-weight: 600; overflow-wrap: anywhere; }
.scroll { overflow-x: auto; }
table { width: 100%; border-collapse: collapse; font-size: 14px; }
th { color: var(--soft); font-weight: 600; font-size: 13px; }
th, td { padding: 5px 14px 5px 0; text-align: left; vertical-align: top;
  border-bottom: 1px solid var(--line); }
tr:last-child td { border-bottom: 0; }
td.number, th.number { text-align: right; font-variant-numeric: tabular-nums; }
td.time { white-space: nowrap; font-variant-numeric: tabular-nums; }
code { font: 13px/1.5 ui-monospace, "Liberation Mono", monospace; overflow-wrap: anywhere; }
small { color: var(--soft); font-size: 13px; }
details { margin-top: 4px; }
summary { color: var(--accent); cursor: pointer; font-size: 14px; }
svg { display: block; width: 100%; height: auto; font-size: 13px; }
svg text { fill: var(--ink); }
svg .column, svg .when, svg .rows, svg .link text { fill: var(--soft); font-size: 12px; }
.narrow { display: none; }
.tick { stroke: var(--line); }
.now { stroke: var(--now); stroke-width: 2; }
svg .nowtext { fill: var(--now); font-weight: 700; font-size: 12px; }
.bar rect { stroke: var(--card); stroke-width: 1.5; }
.bar.red rect { fill: var(--red); } .bar.amber rect { fill: var(--amber); }
.bar.green rect { fill: var(--green); } .bar.blue rect { fill: var(--blue); }
.bar.teal rect { fill: var(--teal); } .bar.violet rect { fill: var(--violet); }
.bar.pink rect { fill: var(--pink); } .bar.grey rect { fill: var(--grey); }
.bar.repeated rect { fill-opacity: .45; }
.bar.repeated text { fill: var(--soft); }
.bar.waiting rect { fill: url(#hatch); stroke: var(--soft); stroke-dasharray: 3 3;
  stroke-width: 1; }
.bar.waiting text { fill: var(--soft); font-style: italic; }
.bar.quick rect { fill: url(#stripes); }
.bar.forever rect { mask: url(#fade); }
.box rect { fill: var(--page); stroke: var(--accent); stroke-width: 1.5; }
.box .name { font-weight: 600; }
.link path { fill: none; stroke: var(--soft); stroke-width: 1.5; }
path.head { fill: var(--soft); }
.key { display: flex; flex-wrap: wrap; gap: 4px 20px; margin: 0 0 4px; padding: 0;
  list-style: none; color: var(--soft); font-size: 13px; }
.key li { display: flex; align-items: center; gap: 7px; }
.key svg { width: 30px; height: 14px; }
footer { margin-top: 22px; color: var(--soft); font-size: 13px; }
@media (max-width: 640px) { main { padding: 18px 12px 32px; } section { padding: 14px 12px; }
  .wide { display: none; } .narrow { display: block; } h1 { font-size: 23px; }
  dl { grid-template-columns: 1fr 1fr; } }
@media print { body { background: none; } section { break-inside: avoid; } }
)css";

}  // namespace tool

#endif
