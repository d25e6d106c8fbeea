"""Draws the charts of the documents as SVG files: bars, and lines over a scale.

Colours follow the reader's light or dark mode, the background is the page's. The same data give the same bytes.
"""

from dataclasses import dataclass, field
from xml.sax.saxutils import escape

WIDTH = 760
LABEL_WIDTH = 150
VALUE_WIDTH = 150  # right of the longest bar
BAR, ROW = 8, 26
TOP = 30  # below the caption
PLOT_TOP = 52  # room for the words above the highest point
PLOT_LEFT, PLOT_RIGHT = 40, WIDTH - 130
PLOT_HEIGHT = 200
LINE_HEIGHT = 17

STYLE = """
text { font: 13px system-ui, sans-serif; fill: #59636e; }
.accent { fill: #0969da; font-weight: 600; }
.accent-words { fill: #1f2328; }
.bar { fill: #0969da; }
line, path { fill: none; stroke: #d1d9e0; stroke-width: 1; }
.quiet-line { stroke: #818b98; stroke-width: 1.5; }
.accent-line { stroke: #0969da; stroke-width: 2; }
.quiet-dot { fill: #818b98; }
.accent-dot { fill: #0969da; }
.dashed { stroke-dasharray: 4 4; }
@media (prefers-color-scheme: dark) {
  text { fill: #9198a1; }
  .accent { fill: #58a6ff; }
  .accent-words { fill: #f0f6fc; }
  .bar, .accent-dot { fill: #58a6ff; }
  line, path { stroke: #3d444d; }
  .quiet-line { stroke: #7d8590; }
  .accent-line { stroke: #58a6ff; }
  .quiet-dot { fill: #7d8590; }
}
"""


@dataclass
class Chart:
    """A picture that grows by elements; what it shows is told to those who do not see it."""

    title: str
    description: str
    elements: list[str] = field(default_factory=list)

    def text(self, x: float, y: float, words: str, style: str = "", anchor: str = "start") -> None:
        attributes = (f' class="{style}"' if style else "") + (f' text-anchor="{anchor}"' if anchor != "start" else "")
        self.elements.append(f'<text x="{x:.1f}" y="{y:.1f}"{attributes}>{escape(words)}</text>')

    def line(self, x1: float, y1: float, x2: float, y2: float, style: str = "") -> None:
        attribute = f' class="{style}"' if style else ""
        self.elements.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}"{attribute}/>')

    def svg(self, height: float) -> str:
        return "\n".join([
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" width="{WIDTH}" '
            f'height="{height:.0f}" role="img" aria-labelledby="title description">',
            f'<title id="title">{escape(self.title)}</title>',
            f'<desc id="description">{escape(self.description)}</desc>',
            f"<style>{STYLE}</style>", *self.elements, "</svg>", ""])


@dataclass
class Bar:
    label: str
    value: float
    words: str  # beside the bar


def bar_chart(title: str, caption: str, bars: list[Bar]) -> str:
    chart = Chart(title, "; ".join(f"{bar.label}: {bar.words}" for bar in bars))
    chart.text(0, 14, caption)
    scale = (WIDTH - LABEL_WIDTH - VALUE_WIDTH) / max(bar.value for bar in bars)
    for row, bar in enumerate(bars):
        y = TOP + row * ROW
        length = max(bar.value * scale, 1)
        chart.text(LABEL_WIDTH - 10, y + 12, bar.label, anchor="end")
        chart.elements.append(f'<rect class="bar" x="{LABEL_WIDTH}" y="{y + 4}" width="{length:.1f}" height="{BAR}"/>')
        chart.text(LABEL_WIDTH + length + 8, y + 12, bar.words)
    return chart.svg(TOP + len(bars) * ROW)


@dataclass
class Series:
    name: str
    points: list[tuple[float, float]]
    words: list[str]  # beside the points; none where they are empty
    accent: bool = False
    below: list[bool] = field(default_factory=list)  # where the words stand below the points
    dashed: bool = False
    ranges: list[tuple[float, float]] = field(default_factory=list)  # lowest and highest at the points


@dataclass
class Mark:
    """A place on the horizontal scale."""

    x: float
    label: str
    emphasis: str = ""  # a second line


def bit_rate_marks(bit_rates: list[int], emphasis: list[str] | None = None) -> list[Mark]:
    labels = [f"{bit_rate // 1000}" for bit_rate in bit_rates[:-1]] + [f"{bit_rates[-1] // 1000} kbit/s"]
    return [Mark(*place) for place in zip(bit_rates, labels, emphasis or [""] * len(labels))]


def line_chart(title: str, caption: str, series: list[Series], marks: list[Mark], low: float, high: float,
               level: tuple[float, str] | None = None) -> str:
    """Low and high are the ends of the vertical scale; level is a line across with its name."""
    told = (f"{one.name}: " + ", ".join(f"{words} at {mark.label}" for words, mark in zip(one.words, marks) if words)
            for one in series)
    chart = Chart(title, "; ".join(told))
    chart.text(0, 14, caption)
    first, last = marks[0].x, marks[-1].x

    def across(x: float) -> float:
        return PLOT_LEFT + (x - first) / (last - first) * (PLOT_RIGHT - PLOT_LEFT)

    def up(y: float) -> float:
        return PLOT_TOP + (high - y) / (high - low) * PLOT_HEIGHT

    floor = up(low)
    chart.line(0, floor, PLOT_RIGHT + PLOT_LEFT, floor)
    if low == 0:
        chart.text(0, floor - 6, "0")
    for mark in marks:
        chart.line(across(mark.x), floor, across(mark.x), floor + 4)
        chart.text(across(mark.x), floor + 20, mark.label, anchor="middle")
        if mark.emphasis:
            chart.text(across(mark.x), floor + 38, mark.emphasis, "accent", "middle")
    if level is not None:
        chart.line(0, up(level[0]), PLOT_RIGHT + PLOT_LEFT, up(level[0]), "dashed")
        chart.text(PLOT_RIGHT + PLOT_LEFT, up(level[0]) - 6, level[1], anchor="end")
    for one in series:
        draw(chart, one, [(across(x), up(y)) for x, y in one.points],
             [(up(highest), up(lowest)) for lowest, highest in one.ranges])
    name_lines(chart, [(up(one.points[-1][1]), one) for one in series])
    return chart.svg(floor + (46 if any(mark.emphasis for mark in marks) else 28))


def draw(chart: Chart, series: Series, places: list[tuple[float, float]], ranges: list[tuple[float, float]]) -> None:
    kind = "accent" if series.accent else "quiet"
    for (x, _), (top, bottom) in zip(places, ranges):
        chart.line(x, top, x, bottom, "quiet-line")
    path = " L".join(f"{x:.1f} {y:.1f}" for x, y in places)
    chart.elements.append(f'<path class="{kind}-line{" dashed" if series.dashed else ""}" d="M{path}"/>')
    for place, ((x, y), words) in enumerate(zip(places, series.words)):
        chart.elements.append(f'<circle class="{kind}-dot" cx="{x:.1f}" cy="{y:.1f}" r="3"/>')
        top, bottom = ranges[place] if ranges else (y, y)
        if words:
            below = series.below and series.below[place]
            chart.text(x, bottom + 18 if below else top - 10, words, "accent-words" if series.accent else "", "middle")


def name_lines(chart: Chart, ends: list[tuple[float, Series]]) -> None:
    """Beside their ends, or below the name above where that would cover it."""
    lowest_free = 0.0
    for y, series in sorted(ends, key=lambda end: end[0]):
        y = max(y, lowest_free)
        chart.text(PLOT_RIGHT + 28, y + 4, series.name, "accent" if series.accent else "")
        lowest_free = y + LINE_HEIGHT
