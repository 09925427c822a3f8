// host/report/page_style.h: how the page looks.
#ifndef QUORVANE_HOST_REPORT_PAGE_STYLE_H_
#define QUORVANE_HOST_REPORT_PAGE_STYLE_H_

namespace quorvane::host {

// Texts stand out from what is behind them by a contrast of 4.5 at least, in both schemes, and what is to be
// told apart by colour is told in words, too.
inline constexpr char kPageStyle[] = R"css(
:root { color-scheme: light dark; --page: #f6f7f8; --card: #ffffff; --text: #1b2026; --faint: #57606a;
  --line: #d5d9de; --sent: #0b5cad; --received: #b3530a; --alarm: #a3231f; --good: #1a6b35; --link: #0b5cad; }
@media (prefers-color-scheme: dark) { :root { --page: #14171a; --card: #1d2125; --text: #e4e7ea;
  --faint: #a3abb3; --line: #3a4147; --sent: #6cb2f5; --received: #f0a15c; --alarm: #ff938c; --good: #7fd39a;
  --link: #7fbdf7; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--text); font: 16px/1.5 system-ui, "Segoe UI", Roboto,
  "DejaVu Sans", sans-serif; overflow-wrap: anywhere; }
header, main, footer { max-width: 68rem; margin: 0 auto; padding: 0 1rem; }
header { padding-top: 1.5rem; }
h1 { font-size: 1.7rem; line-height: 1.2; margin: 0; }
h2 { font-size: 1.2rem; margin: 0 0 .6rem; }
h3 { font-size: 1rem; margin: 0; }
p { margin: .3rem 0; }
a { color: var(--link); }
a:focus-visible, summary:focus-visible { outline: 3px solid var(--link); outline-offset: 2px; }
.faint, footer, caption, .none { color: var(--faint); }
.alarm { color: var(--alarm); font-weight: 600; }
.good { color: var(--good); font-weight: 600; }
footer { padding-bottom: 2rem; font-size: .875rem; }
section { background: var(--card); border: 1px solid var(--line); border-radius: .6rem; padding: 1rem;
  margin: 1rem 0; }
nav ul { list-style: none; display: grid; grid-template-columns: repeat(auto-fit, minmax(8.5rem, 1fr));
  gap: .6rem; margin: 1rem 0 0; padding: 0; }
nav a { display: block; height: 100%; background: var(--card); border: 1px solid var(--line);
  border-radius: .6rem; padding: .5rem .8rem; text-decoration: none; color: var(--text); }
nav a:hover { border-color: var(--link); }
nav b.nothing { color: var(--faint); font-weight: 400; }
nav b { display: block; font-size: 1.5rem; line-height: 1.3; font-variant-numeric: tabular-nums; }
table { border-collapse: collapse; width: 100%; font-variant-numeric: tabular-nums; }
caption { text-align: left; font-size: .875rem; padding-bottom: .3rem; }
th, td { text-align: left; vertical-align: top; padding: .35rem .9rem .35rem 0;
  border-bottom: 1px solid var(--line); }
thead th { font-size: .875rem; color: var(--faint); font-weight: 600; }
tbody th { font-weight: 600; }
th, td { min-width: 6rem; }
tbody tr:last-child > * { border-bottom: 0; }
table + table, p + table, .none + table { margin-top: 1rem; }
ul.todo { margin: 0; padding-left: 1.2rem; }
code { font: .9em/1.4 ui-monospace, "DejaVu Sans Mono", monospace; }
figure { display: grid; margin: 0 0 1.5rem; gap: .3rem .6rem; }
figure:last-child { margin-bottom: 0; }
figcaption, .ends, figure details { grid-column: 1 / -1; }
svg { display: block; width: 100%; height: calc(100% - .5rem); overflow: visible; }
rect.sent, i.sent { fill: var(--sent); background: var(--sent); }
rect.received, i.received { fill: var(--received); background: var(--received); }
line { stroke: var(--line); stroke-width: 1; vector-effect: non-scaling-stroke; }
.days { grid-template-columns: auto 1fr; grid-template-rows: auto 9.5rem auto auto; }
.axes { display: flex; flex-direction: column; justify-content: space-between; text-align: right; }
.axes, .days > svg { margin-top: .5rem; }
.axes span { line-height: 1; margin: -.4em 0; }
.axes, .ends, .labels, .numbers { font-size: .8rem; color: var(--faint); font-variant-numeric: tabular-nums; }
.ends { display: flex; flex-wrap: wrap; justify-content: space-between; gap: 0 1rem; }
.key { color: var(--text); }
i { display: inline-block; width: .8em; height: .8em; border-radius: 2px; margin-left: .5em; }
.rows > svg { height: 100%; }
.rows { grid-template-columns: auto 1fr auto; }
.labels span, .numbers span { display: block; height: 1.6rem; line-height: 1.6rem; white-space: nowrap; }
.numbers { text-align: right; color: var(--text); }
time, .ago { white-space: nowrap; }
summary { cursor: pointer; font-size: .875rem; color: var(--link); width: fit-content; }
@media (max-width: 40rem) {
  h1 { font-size: 1.4rem; }
  nav ul { grid-template-columns: 1fr 1fr; }
  section > table, section > table :is(caption, tbody, tr) { display: block; }
  section > table thead { position: absolute; width: 1px; height: 1px; overflow: hidden; clip-path: inset(50%); }
  section > table tr { padding: .5rem 0; border-bottom: 1px solid var(--line); }
  section > table tbody tr:last-child { border-bottom: 0; }
  th, td { min-width: 0; }
  section > table :is(th, td) { display: block; border: 0; padding: .1rem 0; }
  section > table td { display: flex; gap: .8rem; justify-content: space-between; }
  section > table td > span { text-align: right; }
  section > table td::before { content: attr(data-head); color: var(--faint); flex: none; }
}
@media print { body { background: none; } section { break-inside: avoid; } }
)css";

}  // namespace quorvane::host

#endif  // QUORVANE_HOST_REPORT_PAGE_STYLE_H_
