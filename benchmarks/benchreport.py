"""Turns measured runs into the report: tables, fitted lines and a picture."""
import statistics

LINE_GOAL = 0.15
PEAK_GOAL_MB = {"formatCitationsAndBibliography": 135}
# The largest allowed ratio of times, by command, bridge and the program that it is compared with.
GOALS = {
    ("getUserUuid", "bridge", "curl -s"): 0.80,
    ("getUserUuid", "self-contained", "curl -s"): 0.42,
    ("formatCitationsAndBibliography", "bridge", "C++ peer"): 0.42,
    ("formatCitationsAndBibliography", "bridge", "Python peer"): 0.48,
    ("formatCitationsAndBibliography", "self-contained", "bridge"): 1.00,
}


def median(runs, key):
    return statistics.median(run[key] for run in runs)


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines) + "\n"


def verdict(value, goal):
    return "met" if value <= goal else "**missed**"


def round_ratios(runs, program, other, key):
    # A run that is too short for the processor clock counts as one microsecond.
    return [max(mine[key], 1e-3) / max(its[key], 1e-3)
            for mine, its in zip(runs[program], runs[other])]


def ratio_row(what, series, program, other):
    """One row of the table. The ratio is the median over the series of the median over their rounds."""
    def ratio_of(key):
        return [statistics.median(round_ratios(runs, program, other, key)) for runs in series]
    def time_of(name):
        return median([run for runs in series for run in runs[name]], "ms")
    ratios = ratio_of("ms")
    ratio = statistics.median(ratios)
    goal = GOALS.get((what, program, other))
    return [what, program, other, sum(len(runs[program]) for runs in series),
            f"{time_of(program):.2f}", f"{time_of(other):.2f}", f"{ratio:.3f}",
            f"{min(ratios):.3f} to {max(ratios):.3f}" if len(ratios) > 1 else "",
            f"{statistics.median(ratio_of('cpuMs')):.3f}",
            f"{goal:.2f}" if goal else "", verdict(ratio, goal) if goal else ""]


def ratio_table(comparisons, bridges):
    """Each bridge against each other program that ran in turn with it."""
    rows = []
    for comparison in comparisons:
        for program in bridges:
            others = [name for name in comparison["series"][0] if name not in bridges]
            if program != bridges[0]:
                others.append(bridges[0])
            rows += [ratio_row(**comparison, program=program, other=other) for other in others]
    return table(["command", "program", "against", "rounds", "ms", "other ms", "ratio",
                  "series", "ratio of processor time", "goal", ""], rows)


def memory_table(comparisons, bridges):
    rows = []
    for comparison in comparisons:
        goal = PEAK_GOAL_MB.get(comparison["what"])
        runs = comparison["series"][0]
        for program in runs:
            peak = median(runs[program], "peakMb")
            checked = goal if program in bridges else None
            rows.append([comparison["what"], program, f"{peak:.1f}",
                         f"{median(runs[program], 'faults'):.0f}", checked or "",
                         verdict(peak, checked) if checked else ""])
    return table(["command", "program", "peak MB", "page faults", "goal", ""], rows)


def fit_line(points):
    """The line a + b*x with the least sum of squared relative deviations."""
    weights = [1 / y ** 2 for _, y in points]
    total = sum(weights)
    mean_x = sum(w * x for w, (x, _) in zip(weights, points)) / total
    mean_y = sum(w * y for w, (_, y) in zip(weights, points)) / total
    slope = (sum(w * (x - mean_x) * (y - mean_y) for w, (x, y) in zip(weights, points))
             / sum(w * (x - mean_x) ** 2 for w, (x, _) in zip(weights, points)))
    return mean_y - slope * mean_x, slope


class Line:
    """A straight line fitted to the bridge's cost by size of the reply, and the deviations from it."""

    def __init__(self, growth, key, start):
        points = [point for point in growth if point["size"] >= start]
        self.key = key
        self.base, self.slope = fit_line(
            [(point["replyMb"], median(point["bridge"], key)) for point in points])
        self.worst = max(abs(self.deviation(point)) for point in points)

    def deviation(self, point):
        """The relative deviation of a point: 0.1 is a tenth above the line."""
        return median(point["bridge"], self.key) / (self.base + self.slope * point["replyMb"]) - 1


def growth_tables(growth, programs):
    return "\n".join(series_table(**series, programs=programs) for series in growth)


def series_table(start, what, points, programs):
    lines = [Line(points, "ms", start), Line(points, "peakMb", start)]
    header = ["document", "reply MB", *(f"{program} ms" for program in programs),
              *(f"{program} MB" for program in programs), "time to line", "memory to line"]
    rows = []
    for point in points:
        row = [point["what"], f"{point['replyMb']:.3g}"]
        for key in ("ms", "peakMb"):
            row += [f"{median(point[program], key):.1f}" for program in programs]
        for line in lines:
            row.append(f"{100 * line.deviation(point):+.0f} %" if point["size"] >= start else "")
        rows.append(row)
    time, memory = lines
    return table(header, rows) + (
        f"\nFrom {what.format(max(start, points[0]['size']))} on, the bridge's time is"
        f" {time.base:.1f} ms + {time.slope:.2f} ms for each MB of the reply, at most "
        f"{100 * time.worst:.1f} % off ({verdict(time.worst, LINE_GOAL)}: 15 %); its peak is "
        f"{memory.base:.1f} MB + {memory.slope:.2f} times the reply, at most "
        f"{100 * memory.worst:.1f} % off ({verdict(memory.worst, LINE_GOAL)}: 15 %).\n")


def server_table(server_times):
    rows = [[name, times["requests"], f"{times['cpuMs']:.2f}", f"{times['replyMs']:.2f}",
             f"{times['wallMs']:.2f}"] for name, times in server_times.items()]
    return table(["document", "requests", "processor ms", "last byte in to last byte out, ms",
                  "first byte in to last byte out, ms"], rows)


def write_picture(path, growth, programs):
    """Draws time and memory by number of citations. Returns False if matplotlib is not installed."""
    try:
        import matplotlib
    except ImportError:
        return False
    matplotlib.use("svg")
    matplotlib.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "growth"})
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(1, 2, figsize=(10, 4))
    counts = [point["size"] for point in growth]
    for axis, key, title in zip(axes, ("ms", "peakMb"), ("time, ms", "peak memory, MB")):
        for program, marker in zip(programs, "osD^"):
            axis.loglog(counts, [median(point[program], key) for point in growth],
                        marker=marker, label=program)
        axis.set_xlabel("citations")
        axis.set_title(title)
        axis.grid(True, which="major", alpha=0.3)
        axis.legend()
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    return True
