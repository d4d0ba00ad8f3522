"""Turns what scripts/bench has measured into a table of figures with their gates, and pictures."""

from collections import namedtuple
from statistics import median

# exact: a count or a ratio of counts, which no noise of the machine moves.
Row = namedtuple("Row", "name value unit gate goal text exact passes reaches")

MIB = 0x100000
FRAME_NAMES = {20_000: "20 KB", 200_000: "200 KB", 1_500_000: "1.5 MB"}
PAYLOAD_NAMES = {8192: "8 KB", 16384: "16 KB", 65536: "64 KB"}


# --- figures -------------------------------------------------------------------------------------

def runs_of(cell, side, window=None):
    return [run for run in cell["runs"]
            if run["side"] == side and (window is None or run["window"] == window)]


def ratio(cell, name, above, below):
    """`name` of one side and window divided by that of another: the median over the pairs of runs
    that followed each other, so that a load that comes and goes meets both of a pair. ValueError
    when there are none, or one of a pair is missing: no gate is passed by what was not measured."""
    return median(one[name] / other[name] for one, other in
                  zip(runs_of(cell, *above), runs_of(cell, *below), strict=True))


LOCK_STEP, QUEUED, LIBUVC = ("plugin", 1), ("plugin", 4), ("libuvc", 1)
BARE = ("bare", 1)


def cells(result, **wanted):
    return [cell for cell in result["compare"].get("closed", [])
            if all(cell[name] == value for name, value in wanted.items())]


def event_time_against_copy(cell):
    """The least of the runs, as nothing makes a thread's time shorter than it is."""
    return min(run["event_ns_per_byte"] for run in runs_of(cell, *LOCK_STEP)) / \
        cell["copy_ns_per_byte"]


def paced(result, frame, rate):
    for cell in result["compare"].get("paced", []):
        if cell["frame"] == frame and cell["rate"] == rate:
            return cell
    return None


def bare_wakeup_ratio(result):
    """The median over all frame sizes and rates but the largest frames, whose copy is in it."""
    values = [ratio(cell, "median_us", ("plugin",), ("bare",))
              for cell in result["compare"].get("paced", []) if cell["frame"] < MIB]
    return median(values)


def real_ns(result, name):
    unit = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    one = result["micro"][name]
    return one["cpu_time"] * unit[one["time_unit"]]


def parser_ns(result):
    return max(real_ns(result, f"parser/substreams:{n}") / n for n in range(1, 8))


def dispatch_ns(result):
    few, many = (real_ns(result, f"dispatch/observers:{n}") for n in (1, 64))
    return (many - few) / 63


# --- the table -----------------------------------------------------------------------------------

def at_most(name, value, gate, goal, unit="", exact=False, digits=2):
    return Row(name, value, unit, f"at most {gate}", f"at most {goal}", f"{value:.{digits}f}", exact,
               value <= gate, value <= goal)


def at_least(name, value, gate, goal, unit="", exact=False):
    return Row(name, value, unit, f"at least {gate}", f"at least {goal}", f"{value:.2f}", exact,
               value >= gate, value >= goal)


def exactly(name, value, number, unit=""):
    return Row(name, value, unit, f"{number}", f"{number}", f"{value:g}", True, value == number,
               value == number)


def shown(name, value):
    """A figure to compare others with: neither gate nor goal."""
    return Row(name, value, "", "", "", f"{value:.2f}", False, True, None)


def counted_rows(result):
    counters, instructions = result["counters"], result["instructions"]
    compare = result["compare"]
    one_core = cells(result, cores=1, read=True)
    yield exactly("bytes copied per byte delivered, video", counters["video_copied_per_byte"], 1)
    yield exactly("allocations per frame, video and sound",
                  counters["video_allocations"] + counters["audio_allocations"], 0)
    yield exactly("wake-ups signalled per frame", counters["video_signals"], 1)
    yield at_most("instructions per payload in the completion callback, copy and libusb excluded",
                  instructions["video"], 250, 130, exact=True, digits=0)
    if one_core:
        # The least of the runs: what other programs add is no switch of ours.
        switches = max(min(run["switches_per_frame"] for run in runs_of(cell, *LOCK_STEP))
                       for cell in one_core)
        yield at_most("context switches per frame, one core, every byte read, lock step (worst of nine)",
                      switches, 2.2, 2.2, exact=True)
    if "end" in compare:
        yield at_most("end of frame without data: latency (lower tenth) as part of a frame period",
                      compare["end"]["plugin"]["share_of_period"] * 100, 5, 1, "%", exact=True)
    if "stalls" in compare:
        yield exactly("frames lost, an observer stalls 15 ms every 50 frames at 200 frames/s",
                      compare["stalls"]["plugin"]["lost"], 0)
    yield at_most("parser, per sub-stream", parser_ns(result), 200, 60, "ns", exact=True, digits=0)
    yield exactly("parser: bytes copied and allocations",
                  counters["parser_copied_bytes"] + counters["parser_allocations"], 0)
    yield at_most("dispatch, per observer", dispatch_ns(result), 100, 40, "ns", exact=True, digits=1)


def timed_rows(result):
    compare = result["compare"]
    if "resources" not in compare:
        return
    large = [cell for cell in cells(result, cores=1, read=False)
             if cell["frame"] >= 200_000 and cell["payload"] >= 16384]
    yield at_most("event thread's time per byte against memcpy of the same payloads (worst of four)",
                  max(map(event_time_against_copy, large)), 1.6, 1.15)
    yield at_least("throughput against libuvc, 200 KB, two cores, lock step (median of six)",
                   median(ratio(cell, "mb_per_s", LOCK_STEP, LIBUVC)
                          for cell in cells(result, cores=2, frame=200_000)), 1.5, 2.3)
    one_core = cells(result, cores=1, read=True)
    yield at_least("throughput against libuvc, one core, every byte read, lock step (worst of nine)",
                   min(ratio(cell, "mb_per_s", LOCK_STEP, LIBUVC) for cell in one_core), 0.9, 1.3)
    yield at_least("the same, each as deep as it goes without loss (worst of nine)",
                   min(ratio(cell, "mb_per_s", QUEUED, LIBUVC) for cell in one_core), 1.3, 1.3)
    yield shown("a bare client of libusb against libuvc, the same cells, lock step (worst of nine)",
                min(ratio(cell, "mb_per_s", BARE, LIBUVC) for cell in one_core))
    yield shown("throughput against the bare client's, lock step (worst of nine)",
                min(ratio(cell, "mb_per_s", LOCK_STEP, BARE) for cell in one_core))
    yield at_least("CPU per byte, libuvc / plug-in, one core, every byte read (median of nine)",
                   median(ratio(cell, "cpu_ns_per_byte", LIBUVC, QUEUED) for cell in one_core),
                   1.3, 1.8)
    for frame, gate, goal in ((200_000, 1.5, 2.5), (1_500_000, 5, 12)):
        yield at_least(f"median latency, libuvc / plug-in, {FRAME_NAMES[frame]}, lock step "
                       "(median of twelve)",
                       median(ratio(cell, "median_us", LIBUVC, LOCK_STEP)
                              for cell in cells(result, frame=frame)), gate, goal)
    yield at_most("median latency against a bare condition variable's, at 30 and 200 frames/s",
                  bare_wakeup_ratio(result), 2, 1.2)
    resources = compare["resources"]
    yield at_most("start of recording beyond its waits", resources["start_ms"], 20, 8, "ms")
    yield at_most("stop of recording beyond its waits", resources["stop_ms"], 20, 8, "ms")
    yield at_most("resident memory while streaming, beyond the fixed buffers",
                  resources["resident_beyond_buffers_mib"], 4, 2, "MiB")


def rows(result):
    return [*counted_rows(result), *timed_rows(result)]


def table(all_rows):
    lines = ["| figure | measured | gate | goal | |", "|---|---|---|---|---|"]
    for row in all_rows:
        state = "" if row.reaches is None else "goal" if row.reaches else \
            "gate" if row.passes else "**missed**"
        unit = f" {row.unit}" if row.unit else ""
        lines.append(f"| {row.name} | {row.text}{unit} | {row.gate} | {row.goal} | {state} |")
    return "\n".join(lines) + "\n"


# --- pictures ------------------------------------------------------------------------------------

STYLE = ('<style>text{font:12px sans-serif;fill:#222}.t{font-size:15px;font-weight:bold}'
         '.s{fill:#666}.g{stroke:#ddd}.l{stroke:#c33;stroke-dasharray:5 4}</style>')
COLOURS = ("#2b6cb0", "#dd8b2f", "#3a9a5b", "#999999")


def svg(width, height, parts):
    return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}"><rect width="{width}" height="{height}" '
            f'fill="white"/>{STYLE}{"".join(parts)}</svg>\n')


def text(x, y, words, kind="", anchor="start"):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">{words}</text>'


def bars(title, note, groups, series):
    """A picture of ratios: `groups` are (name, values), one value for each of `series`."""
    left, right, top, line, gap, pitch = 150, 60, 70, 15, 10, 190
    step = line * len(series) + gap
    largest = max(value for _, values in groups for value in values)
    width, height = max(760, left + pitch * len(series)), top + step * len(groups) + 30
    scale = (width - left - right) / largest
    parts = [text(20, 24, title, "t"), text(20, 42, note, "s")]
    for i, name in enumerate(series):
        parts.append(f'<rect x="{left + i * pitch}" y="50" width="10" height="10" '
                     f'fill="{COLOURS[i]}"/>' + text(left + i * pitch + 15, 59, name))
    for g, (name, values) in enumerate(groups):
        y = top + g * step
        parts.append(text(left - 8, y + line * len(series) / 2 + 4, name, anchor="end"))
        for i, value in enumerate(values):
            parts.append(f'<rect x="{left}" y="{y + i * line}" width="{value * scale:.1f}" '
                         f'height="{line - 2}" fill="{COLOURS[i]}"/>'
                         + text(left + value * scale + 5, y + i * line + 11, f"{value:.2f}", "s"))
    one = left + scale
    parts.append(f'<line x1="{one:.1f}" x2="{one:.1f}" y1="{top - 6}" y2="{height - 24}" class="l"/>'
                 + text(one, height - 8, "1: as libuvc", "s", "middle"))
    return svg(width, height, parts)


def cell_name(cell):
    return f"{FRAME_NAMES[cell['frame']]} in {PAYLOAD_NAMES[cell['payload']]}"


def ratio_picture(result, cores, read):
    found = sorted(cells(result, cores=cores, read=read),
                   key=lambda cell: (cell["frame"], cell["payload"]))
    if not found:
        return None
    series = [("throughput, lock step", "mb_per_s", LOCK_STEP, LIBUVC),
              ("throughput, queue used", "mb_per_s", QUEUED, LIBUVC)]
    if cores == 1:  # on two, a thread that spins for its next payload has no CPU time to speak of
        series.append(("CPU per byte, queue used", "cpu_ns_per_byte", LIBUVC, QUEUED))
    if all(runs_of(cell, *BARE) for cell in found):
        series.append(("bare client, lock step", "mb_per_s", BARE, LIBUVC))
    where = f"{'one core' if cores == 1 else 'two cores'}, every byte {'' if read else 'not '}read"
    return bars(f"Plug-in against libuvc: {where}",
                "frame size in payload size; medians of paired runs, above 1 is better than libuvc",
                [(cell_name(cell), [ratio(cell, *what) for _, *what in series]) for cell in found],
                [name for name, *_ in series])


def latency_picture(result):
    found = sorted(cells(result, cores=2, read=False),
                   key=lambda cell: (cell["frame"], cell["payload"]))
    if not found:
        return None
    groups = [(cell_name(cell), [ratio(cell, "median_us", LIBUVC, LOCK_STEP)]) for cell in found]
    return bars("Median latency, libuvc / plug-in: last payload to frame in hand",
                "two cores, lock step, every byte not read; larger is better for the plug-in",
                groups, ["latency, lock step"])


GROWTH = {"resolution": ("bytes per frame, 30 frames/s", "frame"),
          "rate": ("frames per second, 0.3 MB each", "rate"),
          "payload": ("bytes per payload, 0.9 MB at 60 frames/s", "payload"),
          "substreams": ("sub-streams in 0.3 MB, 120 frames/s", "substreams")}


def amount_text(amount):
    return f"{amount / 1000:.0f}k" if amount >= 1000 else f"{amount:g}"


def growth_picture(result):
    growth = result["compare"].get("growth")
    if not growth:
        return None
    width, height, size = 760, 560, 190
    parts = [text(20, 24, "CPU of both threads, milliseconds in each second", "t"),
             text(20, 42, "plug-in at a set rate, two cores, pictures not read", "s")]
    for index, (name, (label, key)) in enumerate(GROWTH.items()):
        left, top = 60 + index % 2 * 370, 75 + index // 2 * 245
        points = [(one[key], one["cpu_ms_per_s"]) for one in growth[name]]
        widest, highest = max(x for x, _ in points), max(y for _, y in points) * 1.15
        place = [(left + x / widest * 270, top + size - y / highest * size) for x, y in points]
        parts.append(f'<path class="g" fill="none" d="M{left} {top}V{top + size}H{left + 290}"/>')
        parts.append(f'<polyline fill="none" stroke="{COLOURS[0]}" points="'
                     + " ".join(f"{x:.1f},{y:.1f}" for x, y in place) + '"/>')
        for (x, y), (amount, cost) in zip(place, points):
            parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3.5" fill="{COLOURS[0]}"/>'
                         + text(x, y - 8, f"{cost:.1f}", "s", "middle")
                         + text(x, top + size + 15, amount_text(amount), "s", "middle"))
        parts.append(text(left, top + size + 32, label))
    return svg(width, height, parts)


def pictures(result):
    made = {"one-core.svg": ratio_picture(result, 1, True),
            "one-core-unread.svg": ratio_picture(result, 1, False),
            "two-cores.svg": ratio_picture(result, 2, True),
            "latency.svg": latency_picture(result), "growth.svg": growth_picture(result)}
    return {name: picture for name, picture in made.items() if picture}
