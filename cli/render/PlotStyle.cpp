// How pictures look. The colours are those of Okabe and Ito, which people with any kind of colour vision tell apart.
#include "render/Plot.h"

namespace kivmp4::render {

const std::string_view kPlotStyle = R"css(
:root {
  color-scheme: light dark;
  --page: #fff; --ink: #1d2329; --faint: #5d6873; --line: #d5dbe1; --band: #0072b21f; --warn: #c44601;
  --c0: #0072b2; --c1: #e69f00; --c2: #009e73; --c3: #cc79a7; --c4: #56b4e9; --other: #aab3bc;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #14181c; --ink: #e6eaee; --faint: #9aa5b0; --line: #353d45; --band: #56b4e92b; --warn: #ff8a4c;
    --c0: #4ca3dd; --c1: #f0b23c; --c2: #2fc79b; --c3: #e39cc4; --c4: #a6d8f5; --other: #626c76;
  }
}
svg.plot { display: block; overflow: visible; font: 12px system-ui, sans-serif; touch-action: pan-y; }
svg.plot .c0 { --c: var(--c0); } svg.plot .c1 { --c: var(--c1); } svg.plot .c2 { --c: var(--c2); }
svg.plot .c3 { --c: var(--c3); } svg.plot .c4 { --c: var(--c4); } svg.plot .faint { --c: var(--other); }
svg.plot .warn { --c: var(--warn); } svg.plot .ink { --c: var(--ink); }
svg.plot .area { fill: var(--c); fill-opacity: .85; }
svg.plot .pale { opacity: .35; }
svg.plot .range { fill: var(--c); stroke: var(--c); stroke-width: 1.5; stroke-linejoin: round; opacity: .8; }
svg.plot .line { fill: none; stroke: var(--c); stroke-width: 1.5; }
svg.plot .stroke { fill: none; stroke: var(--c); stroke-width: 3; }
svg.plot .dots { fill: none; stroke: var(--c); stroke-width: 6; stroke-linecap: round; }
svg.plot path { vector-effect: non-scaling-stroke; }
svg.plot .band { fill: var(--band); }
svg.plot .grid { stroke: var(--line); } svg.plot .axis { stroke: var(--faint); }
svg.plot .rule { stroke: var(--c); stroke-dasharray: 5 4; stroke-width: 1.5; }
svg.plot .cursor { stroke: var(--faint); }
svg.plot text { fill: var(--faint); paint-order: stroke; stroke: var(--page); stroke-width: 3px; stroke-linejoin: round; }
svg.plot .note { fill: var(--ink); font-weight: 600; }
svg.plot .middle { text-anchor: middle; } svg.plot .end { text-anchor: end; }
@media (max-width: 40rem) { svg.plot .second { display: none; } }
)css";

}  // namespace kivmp4::render
