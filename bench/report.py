"""What is shown of the results of ./dev bench: tables, and the page and picture in docs/.

Results are {"machine": {...}, "cases": {name: {"text", "rtt", "mbit", "files", "bytes", ..., "runs":
{run: {subject: [figures of each repetition]}}}}}. draw() makes all from docs/benchmarks.json."""

import json
import math
import pathlib
import statistics
from xml.sax.saxutils import escape

DOCS = pathlib.Path(__file__).resolve().parents[1] / "docs"
KEPT, PAGE, PICTURE = DOCS / "benchmarks.json", DOCS / "benchmarks.md", DOCS / "benchmarks.svg"
BEGIN, END = "<!-- drawn from benchmarks.json: begin -->", "<!-- drawn from benchmarks.json: end -->"
RUNS = ("backup", "unchanged", "restore")


def middle(case, run, subject, name="seconds"):
    """The median over the repetitions, None where it was not measured."""
    values = [f[name] for f in case["runs"].get(run, {}).get(subject, ()) if name in f]
    return statistics.median(values) if values else None


def ratio(case, run, to, of="agent"):
    own, other = middle(case, run, of), middle(case, run, to)
    return own / other if own and other else None


def number(value, form="{:.1f}"):
    return "" if value is None else form.format(value)


def spoken_network(case):
    if not case["rtt"] and not case["mbit"]:
        return "loopback"
    rate = f"{case['mbit']:g} Mbit/s" if case["mbit"] else "any rate"
    return f"{case['rtt']:g} ms round trip, {rate}"


def networks(cases):
    """The cases by network, the nearest first."""
    groups = {}
    for case in sorted(cases.values(), key=lambda c: (c["rtt"], c["mbit"])):
        groups.setdefault(spoken_network(case), []).append(case)
    return groups


def summary(cases):
    """The time of the agent by that of restic: one cell a run."""
    lines = ["| network | set | backup | unchanged | restore |", "|---|---|---|---|---|"]
    for network, group in networks(cases).items():
        for case in group:
            cells = [f"**{r:.2f}** ({middle(case, run, 'agent'):.1f} s)" if (r := ratio(case, run, "restic")) else ""
                     for run in RUNS]
            lines.append(f"| {network} | {case['text']} | " + " | ".join(cells) + " |")
    return "\n".join(lines) + "\n"


def details(cases):
    """A table for each case, a row for each run and subject."""
    lines = []
    for name, case in cases.items():
        scale = f", scale {case['scale']:g}" if case["scale"] != 1 else ""
        lines += [f"### {name}: {case['text']}, {spoken_network(case)}{scale}", "",
                  f"{case['files']} files, {case['bytes'] / 1e6:.1f} MB; {case['when']}, {case['commit']}, "
                  f"load before it {case['load']:.1f}", "",
                  "| run | subject | seconds | spread | MB/s | files/s | CPU s client | CPU s server | MiB client "
                  "| MiB server | requests | connections | MB up | MB down | ÷ floor | ÷ ahead | ÷ restic |",
                  "|---|---|" + "---:|" * 15]
        lines += [_row(case, run, subject) for run in RUNS for subject in case["runs"].get(run, ())]
        lines.append("")
    return "\n".join(lines)


def _row(case, run, subject):
    def of(name, form, factor=1.0):
        value = middle(case, run, subject, name)
        return "" if value is None else form.format(value * factor)

    seconds = [f["seconds"] for f in case["runs"][run][subject]]
    time = statistics.median(seconds)
    return "| " + " | ".join([
        run, subject, f"{time:.2f}", f"{min(seconds):.2f}–{max(seconds):.2f}", f"{case['bytes'] / 1e6 / time:.1f}",
        f"{case['files'] / time:.0f}", of("client_cpu", "{:.2f}"), of("server_cpu", "{:.2f}"),
        of("client_mib", "{:.0f}"), of("server_mib", "{:.0f}"), of("requests", "{:.0f}"), of("connections", "{:.0f}"),
        of("up", "{:.1f}", 1e-6), of("down", "{:.1f}", 1e-6),
        *(number(ratio(case, run, other, subject), "{:.2f}") for other in ("floor", "ahead", "restic"))]) + " |"


def page(results):
    """The measured part of the page."""
    machine, cases = results["machine"], results["cases"]
    runs = sorted({len(f) for c in cases.values() for run in c["runs"].values() for f in run.values()})
    dates = sorted({c["when"] for c in cases.values()})
    wine = results.get("wine_factor")
    factor = "" if machine["restic_in_wine"] or not wine else (
        "The same program takes so many times as long under Wine as natively, at what a client does with files: "
        + ", ".join(f"{what} {value:.1f}" for what, value in wine.items()) + ". ")
    return "\n".join([
        f"{machine['cores']} cores ({machine['processor']}), {machine['wine']}, {machine['restic']}, "
        f"{'under Wine too' if machine['restic_in_wine'] else 'native'}, with {machine['rclone']}. "
        f"{factor}Medians of {'–'.join(map(str, dict.fromkeys((runs[0], runs[-1]))))} runs, "
        f"{'–'.join(dict.fromkeys((dates[0], dates[-1])))}.", "",
        "Time of the agent ÷ time of restic: below 1 the agent is faster. In brackets its seconds.", "",
        "![Time of the agent by that of restic, for every case](benchmarks.svg)", "",
        summary(cases), details(cases)])


def draw():
    """Writes the page's measured part and the picture from the kept results."""
    if not KEPT.exists():
        raise SystemExit(f"bench: there are no results in {KEPT} yet: --keep makes them")
    results = json.loads(KEPT.read_text())
    before, _, rest = PAGE.read_text().partition(BEGIN)
    _, found, after = rest.partition(END)
    if not found:
        raise SystemExit(f"bench: {PAGE} has no place for the results")
    PAGE.write_text(f"{before}{BEGIN}\n{page(results)}{END}{after}")
    PICTURE.write_text(picture(results["cases"]))


# -- the picture ----------------------------------------------------------------------------------

STYLE = """
text { font: 13px system-ui, -apple-system, "Segoe UI", sans-serif; fill: #1f2328 }
.muted { fill: #59636e; font-size: 11px }
.head { font-weight: 600 }
.right { text-anchor: end } .center { text-anchor: middle }
.grid { stroke: #d1d9e0 } .one { stroke: #59636e; stroke-width: 1.5 }
.faster { fill: #0969da } .slower { fill: #bc4c00 }
@media (prefers-color-scheme: dark) {
  text { fill: #f0f6fc } .muted { fill: #9198a1 }
  .grid { stroke: #3d444d } .one { stroke: #9198a1 }
  .faster { fill: #4493f8 } .slower { fill: #f0883e }
}"""
LABELS, PANEL, GAP, ROW, TOP = 240, 190, 72, 24, 78
LEAST, MOST = 0.1, 32.0  # what a panel's width spans; a bar beyond ends there, its figure does not


def _x(panel, value):
    share = math.log(min(max(value, LEAST), MOST) / LEAST) / math.log(MOST / LEAST)
    return LABELS + panel * (PANEL + GAP) + share * PANEL


def _text(x, y, text, kind=""):
    return f'<text x="{x:.0f}" y="{y:.0f}" class="{kind}">{escape(text)}</text>'


def _bar(panel, y, case, run):
    value = ratio(case, run, "restic")
    if value is None:
        return []
    begin, end = sorted((_x(panel, 1), _x(panel, value)))
    kind = "faster" if value <= 1 else "slower"
    seconds = f"{middle(case, run, 'agent'):.2g} s by {middle(case, run, 'restic'):.2g} s"
    shown = f"{value:.2f}" if value < 10 else f"{value:.0f}"
    return [f'<rect x="{begin:.1f}" y="{y - 12:.0f}" width="{max(end - begin, 2):.1f}" height="15" rx="2" class="{kind}">'
            f"<title>{escape(seconds)}</title></rect>",
            _text(max(end, _x(panel, 1)) + 6, y, shown, kind)]


def picture(cases):
    """A row for each case, a panel for each run: bars leave the line of 1 to the faster or the slower side."""
    body, y = [], TOP
    for network, group in networks(cases).items():
        y += 10
        body.append(_text(12, y, network, "head"))
        y += ROW
        for case in group:
            body.append(_text(LABELS - 14, y, case["text"], "right"))
            for panel, run in enumerate(RUNS):
                body += _bar(panel, y, case, run)
            y += ROW
    bottom = y - ROW + 10
    frame = [_text(12, 20, "Time of the agent ÷ time of restic", "head"),
             _text(12, 38, "left of the line the agent is faster, right of it slower; the scale is logarithmic", "muted")]
    for panel, run in enumerate(RUNS):
        frame.append(_text(_x(panel, 1), 58, run, "center head"))
        for value in (0.1, 1, 10):
            x = _x(panel, value)
            frame.append(f'<line x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{bottom}" class="{"one" if value == 1 else "grid"}"/>')
            frame.append(_text(x, 73, f"{value:g}", "center muted"))
    width = LABELS + len(RUNS) * (PANEL + GAP)
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {bottom + 12}" width="{width}" '
                      f'height="{bottom + 12}" role="img">',
                      "<title>Time of the agent by that of restic, for every case</title>",
                      f"<style>{STYLE}\n</style>", *frame, *body, "</svg>", ""])
