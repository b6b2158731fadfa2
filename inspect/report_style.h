// SPDX-License-Identifier: Apache-2.0
/// @file
/// The style sheet of the reports. The colours of the streams can be told apart by people who do not see
/// all colours; what they mark differs in shape or dashes too.
#pragma once

namespace zoflv_inspect {

constexpr char REPORT_STYLE[] =
    R"css(:root{color-scheme:light dark;--back:#fff;--text:#1b1f24;--soft:#505a66;--line:#d5dae1;--card:#f5f7f9;
--link:#0550ae;--video:#0072b2;--audio:#c04a00;--mark:#8a2a7b;--lost:#b3261e;--good:#116329;--fair:#7a4b00;--bad:#a40e26}
@media (prefers-color-scheme:dark){:root{--back:#14171b;--text:#e8ebef;--soft:#a9b3bf;--line:#363d46;--card:#1d2227;
--link:#7cb7ff;--video:#56b4e9;--audio:#f0a030;--mark:#e29bd3;--lost:#ff8a80;--good:#7ee2a0;--fair:#f2c063;--bad:#ff9a98}}
*{box-sizing:border-box}
body{margin:0 auto;max-width:74rem;padding:1rem;background:var(--back);color:var(--text);
font:1rem/1.5 system-ui,"Segoe UI",Roboto,"DejaVu Sans",sans-serif}
h1{font-size:1.5rem;line-height:1.25;margin:.2em 0;overflow-wrap:anywhere}
h2{font-size:1.2rem;margin:0 0 .4rem}
h3{font-size:1rem;margin:0}
p{margin:.3rem 0;max-width:62rem;overflow-wrap:anywhere}
a{color:var(--link)}
:focus-visible{outline:3px solid var(--link);outline-offset:2px}
.verdict{font-size:1.15rem}
.status,.level{display:inline-block;border:2px solid;border-radius:.4rem;padding:0 .5rem;font-weight:700}
.sound{color:var(--good)}.partial,.warning{color:var(--fair)}.refused,.failed,.error{color:var(--bad)}.notice{color:var(--soft)}
.level{border-width:1px;font-size:.85rem}
nav ul,.legend,.findings{list-style:none;margin:.6rem 0;padding:0}
nav ul,.legend{display:flex;flex-wrap:wrap;gap:.2rem 1.2rem}
nav a{display:inline-block;padding:.15rem 0}
section{margin:1rem 0;padding:1rem;background:var(--card);border:1px solid var(--line);border-radius:.5rem}
.findings li{padding:.6rem 0;border-top:1px solid var(--line)}
.findings li:first-child{border-top:0;padding-top:0}
.findings li:last-child{padding-bottom:0}
.legend li{display:flex;align-items:center;gap:.4rem;color:var(--soft);font-size:.9rem}
.legend svg{flex:none}
figure{margin:.4rem 0;padding-left:74px}
figcaption{color:var(--soft);font-size:.9rem}
.scroll{overflow-x:auto}
table{border-collapse:collapse;font-variant-numeric:tabular-nums}
caption{text-align:left;color:var(--soft);padding-bottom:.3rem}
th,td{text-align:left;vertical-align:top;padding:.25rem .9rem .25rem 0;border-bottom:1px solid var(--line);overflow-wrap:break-word}
td{max-width:34rem}
tbody th{font-weight:normal}
#tracks td,.index th{overflow-wrap:anywhere}
.n{text-align:right;white-space:nowrap}
details{margin-top:.6rem}
summary{cursor:pointer;color:var(--link)}
summary+*{margin-top:.5rem}
.plot{display:block;overflow:visible}
.plot .grid{stroke:var(--line)}
.tick{font-size:12px;fill:var(--soft);stroke:var(--card);stroke-width:4px;stroke-linejoin:round;paint-order:stroke}
.middle{text-anchor:middle}
.end{text-anchor:end}
.few{display:none}
svg path,svg line{vector-effect:non-scaling-stroke;fill:none;stroke-width:2}
svg .grid{stroke-width:1}
svg .video{stroke:var(--video)}
svg .audio{stroke:var(--audio)}
svg .wide{stroke-width:6;stroke-opacity:.8}
svg .jump{stroke:var(--mark);stroke-dasharray:2 4}
svg .reset{stroke:var(--mark);stroke-dasharray:9 4}
svg .lost{fill:var(--lost);fill-opacity:.4;stroke:var(--lost);stroke-width:1}
svg .lost-line{stroke:var(--lost);stroke-opacity:.4;stroke-width:12}
svg .ideal{stroke:var(--soft);stroke-width:1;stroke-dasharray:4 4}
svg .miss{stroke:var(--lost);stroke-width:2.5}
svg .video.dot{fill:var(--video)}
svg .audio.dot{fill:var(--audio)}
@media (max-width:48rem){.many{display:none}.few{display:inline}body{padding:.6rem}section{padding:.7rem}}
@media (max-width:40rem){#tracks table{font-size:.9rem}.index,.index caption,.index tbody,.index tr,.index th{display:block}.index thead{position:absolute;clip-path:inset(50%)}
.index tr{border-bottom:1px solid var(--line);padding:.5rem 0}.index th,.index td{border:0;padding:0}
.index td{display:inline}.index .status{margin-right:.4rem}.index td.n{display:block;text-align:left;color:var(--soft)}.index td.n:not(:empty)::after{content:" bytes"}}
@media print{html{font-size:12px}:root{--back:#fff;--text:#000;--soft:#444;--card:#fff;--line:#ddd;--link:#000;--video:#0072b2;--audio:#c04a00;
--mark:#8a2a7b;--lost:#b3261e;--good:#116329;--fair:#7a4b00;--bad:#a40e26}nav,details{display:none}
section{margin:.5rem 0;padding:.5rem .7rem}section,figure,.findings li{break-inside:avoid}#findings,#metadata{break-inside:auto}
body{max-width:none;padding:0;print-color-adjust:exact}}
)css";

} // namespace zoflv_inspect
