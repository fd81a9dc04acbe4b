#include "apps/cli/report/Sections.h"

namespace twintrue::cli {

// d0 to d10 go from blue over the page's own grey to orange: people who do not tell red from green see them
// apart, and the ends differ from the middle in brightness as well. Paper takes the colours of the light
// page.
const char* const kPageStyle = R"css(
:root { --bg: #fff; --fg: #1b1f24; --muted: #59636e; --line: #d1d9e0; --panel: #f6f8fa;
  --good: #1a6f3c; --doubt: #8a5a00; --bad: #b42318; --before: #c65d00; --after: #1f5fa8;
  --d0: #08306b; --d1: #2b6cb0; --d2: #5a9bd5; --d3: #9cc5e8; --d4: #d3e4f3; --d5: #ececec;
  --d6: #fde0c2; --d7: #fdb97a; --d8: #f28e2b; --d9: #c65d00; --d10: #7f3b00; }
@media screen and (prefers-color-scheme: dark) { :root { --bg: #15181c; --fg: #e6e9ec; --muted: #9aa4af;
  --line: #3a424b; --panel: #1e2329; --good: #63d08d; --doubt: #e8b04a; --bad: #ff8f85; --before: #ff9f45;
  --after: #6db3f5; --d0: #b9dbff; --d1: #84bdf5; --d2: #4f94dc; --d3: #33699f; --d4: #27435f;
  --d5: #333840; --d6: #5c4022; --d7: #8c581b; --d8: #cc7d1e; --d9: #f7a548; --d10: #ffd7a8; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--bg); color: var(--fg); font: 16px/1.5 system-ui, sans-serif; }
main { max-width: 1080px; margin: 0 auto; padding: 1rem; }
h1 { font-size: 1.7rem; line-height: 1.2; margin: .5rem 0; overflow-wrap: anywhere; }
h2 { font-size: 1.25rem; margin: 2.2rem 0 .6rem; border-top: 1px solid var(--line); padding-top: 1rem; }
h3 { font-size: 1rem; margin: 0 0 .3rem; }
p { margin: .4rem 0; }
.muted, figcaption, td small { color: var(--muted); }
.name, code, pre { overflow-wrap: anywhere; font-family: ui-monospace, monospace; font-size: .92em; }
.name { unicode-bidi: isolate; white-space: pre-wrap; }
pre { white-space: pre-wrap; background: var(--panel); border: 1px solid var(--line); padding: .6rem; }
.verdict { border-left: .5rem solid var(--good); background: var(--panel); padding: .6rem 1rem; }
.verdict.doubt { border-color: var(--doubt); } .verdict.bad { border-color: var(--bad); }
.verdict li { margin: .4rem 0; }
.wide { overflow-x: auto; }
table { border-collapse: collapse; margin: .5rem 0; font-size: .95rem; }
th, td { text-align: left; padding: .25rem .7rem .25rem 0; border-bottom: 1px solid var(--line);
  vertical-align: top; }
th { font-weight: 600; } td.n, th.n { text-align: right; font-variant-numeric: tabular-nums; white-space: nowrap; }
.ok { color: var(--good); } .failed { color: var(--bad); font-weight: 700; }
figure { margin: 1rem 0; }
figcaption { font-size: .95rem; max-width: 46rem; } figcaption b { color: var(--fg); }
.pair { display: grid; gap: .8rem 1.2rem; grid-template-columns: repeat(auto-fit, minmax(min(100%, 330px), 1fr)); }
.views { grid-template-columns: repeat(auto-fit, minmax(min(100%, 400px), 1fr)); }
.pair svg, .pair img, .single svg, .single img { width: 100%; height: auto; display: block; }
.single { max-width: 640px; }
img { background: #000; }
.keys { display: flex; flex-wrap: wrap; gap: .2rem 1.2rem; font-size: .9rem; margin: .4rem 0; }
.keys .key svg { display: inline; width: 14px; height: 14px; vertical-align: -2px; }
summary { cursor: pointer; }
svg text { fill: var(--muted); font: 11.5px system-ui, sans-serif; }
svg .mid { text-anchor: middle; } svg .end { text-anchor: end; }
svg .grid { stroke: var(--line); stroke-width: .7; } svg .axis { stroke: var(--muted); stroke-width: 1; }
svg .rim { fill: none; stroke: var(--muted); stroke-width: 1; }
svg .arrows { stroke: var(--fg); stroke-width: .9; fill: none; stroke-linecap: round; }
svg .before { fill: var(--before); fill-opacity: .28; stroke: var(--before); stroke-width: 1.2; stroke-dasharray: 4 2; }
svg .after { fill: var(--after); fill-opacity: .35; stroke: var(--after); stroke-width: 1.2; }
svg .mark { stroke: var(--fg); stroke-width: 1; stroke-dasharray: 3 3; }
svg .dot-fit { stroke: var(--after); stroke-width: 1.4; stroke-linecap: round; fill: none; }
svg .dot-out { stroke: var(--muted); stroke-width: 1.4; stroke-linecap: round; fill: none; stroke-opacity: .6; }
svg .dot-misfit { stroke: var(--before); stroke-width: .8; fill: none; }
svg .large { stroke-width: 5; }
svg .wanted { stroke: var(--fg); stroke-width: 2; }
svg .course { stroke: var(--after); stroke-width: 1.5; fill: none; }
svg .point { fill: var(--after); }
svg .d0 { fill: var(--d0); } svg .d1 { fill: var(--d1); } svg .d2 { fill: var(--d2); } svg .d3 { fill: var(--d3); }
svg .d4 { fill: var(--d4); } svg .d5 { fill: var(--d5); } svg .d6 { fill: var(--d6); } svg .d7 { fill: var(--d7); }
svg .d8 { fill: var(--d8); } svg .d9 { fill: var(--d9); } svg .d10 { fill: var(--d10); }
@media (max-width: 500px) { table { font-size: .75rem; } th, td { padding-right: .35rem; } th.n { white-space: normal; } }
@page { size: A4; margin: 14mm; }
@media print { main { max-width: none; padding: 0; } body { font-size: 10.5pt; }
  * { -webkit-print-color-adjust: exact; print-color-adjust: exact; }
  .verdict, figure, tr, h3 { break-inside: avoid; } h2, h3 { break-after: avoid; } .wide { overflow: visible; }
  .pair { grid-template-columns: 1fr 1fr; } .single { max-width: 120mm; } }
)css";

}  // namespace twintrue::cli
