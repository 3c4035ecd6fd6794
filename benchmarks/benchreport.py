"""Turns measured runs into the report: tables, the straight line, the picture."""
import statistics

PEAK_GOAL_MB = 160
LINE_GOAL = 0.15


def median(runs, key):
    return statistics.median(run[key] for run in runs)


def table(header, rows):
    lines = [header, ["---"] * len(header), *rows]
    return "\n".join("| " + " | ".join(str(cell) for cell in line) + " |" for line in lines) + "\n"


def verdict(value, goal):
    return "met" if value <= goal else "**missed**"


def pair_ratios(pair, key):
    # A run too short for the clock of processor time counts as one microsecond.
    return [max(bridge[key], 1e-3) / max(other[key], 1e-3)
            for bridge, other in zip(pair["bridge"], pair["runs"])]


def pairs_table(comparisons):
    """One row for each comparison; the ratio is the median over pairs that ran back to back."""
    rows = []
    for pair in comparisons:
        ratios = pair_ratios(pair, "ms")
        ratio = statistics.median(ratios)
        low, _, high = statistics.quantiles(ratios, n=4)
        rows.append([pair["what"], pair["yardstick"], len(ratios),
                     f"{median(pair['bridge'], 'ms'):.1f}", f"{median(pair['runs'], 'ms'):.1f}",
                     f"{ratio:.3f}", f"{low:.3f} to {high:.3f}",
                     f"{statistics.median(pair_ratios(pair, 'cpuMs')):.3f}",
                     f"{pair['goal']:.2f}", verdict(ratio, pair["goal"])])
    return table(["command", "yardstick", "pairs", "bridge ms", "yardstick ms", "ratio",
                  "middle half", "ratio of processor time", "goal", ""], rows)


def memory_table(comparisons):
    rows = []
    for pair in comparisons:
        peak = median(pair["bridge"], "peakMb")
        rows.append([pair["what"], pair["yardstick"], f"{peak:.1f}",
                     f"{median(pair['runs'], 'peakMb'):.1f}", pair["peakGoal"] or "",
                     verdict(peak, pair["peakGoal"]) if pair["peakGoal"] else ""])
    return table(["command", "yardstick", "bridge peak MB", "yardstick peak MB", "goal", ""], rows)


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
    """How far the bridge's cost is from a straight line over the answer's size."""

    def __init__(self, growth, key, start):
        points = [point for point in growth if point["size"] >= start]
        self.key = key
        self.base, self.slope = fit_line(
            [(point["answerMb"], median(point["bridge"], key)) for point in points])
        self.worst = max(abs(self.share(point)) for point in points)

    def share(self, point):
        """The relative deviation of a point: 0.1 is a tenth above the line."""
        return median(point["bridge"], self.key) / (self.base + self.slope * point["answerMb"]) - 1


def growth_tables(growth, programs):
    return "\n".join(series_table(**series, programs=programs) for series in growth)


def series_table(start, what, points, programs):
    lines = [Line(points, "ms", start), Line(points, "peakMb", start)]
    header = ["document", "answer MB", *(f"{program} ms" for program in programs),
              *(f"{program} MB" for program in programs), "time to line", "memory to line"]
    rows = []
    for point in points:
        row = [point["what"], f"{point['answerMb']:.3g}"]
        for key in ("ms", "peakMb"):
            row += [f"{median(point[program], key):.1f}" for program in programs]
        for line in lines:
            row.append(f"{100 * line.share(point):+.0f} %" if point["size"] >= start else "")
        rows.append(row)
    time, memory = lines
    return table(header, rows) + (
        f"\nFrom {what.format(max(start, points[0]['size']))} on, the bridge's time is"
        f" {time.base:.1f} ms + {time.slope:.2f} ms for each MB of the answer, at most "
        f"{100 * time.worst:.1f} % off ({verdict(time.worst, LINE_GOAL)}: 15 %); its peak is "
        f"{memory.base:.1f} MB + {memory.slope:.2f} times the answer, at most "
        f"{100 * memory.worst:.1f} % off ({verdict(memory.worst, LINE_GOAL)}: 15 %).\n")


def server_table(server_times):
    rows = [[name, times["requests"], f"{times['cpuMs']:.2f}", f"{times['answerMs']:.2f}",
             f"{times['wallMs']:.2f}"] for name, times in server_times.items()]
    return table(["document", "requests", "processor ms", "last byte in to last byte out, ms",
                  "first byte in to last byte out, ms"], rows)


def write_picture(path, growth, programs):
    """Time and memory over citations; False when matplotlib is not there."""
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
        for program, marker in zip(programs, "os^"):
            axis.loglog(counts, [median(point[program], key) for point in growth],
                        marker=marker, label=program)
        axis.set_xlabel("citations")
        axis.set_title(title)
        axis.grid(True, which="major", alpha=0.3)
        axis.legend()
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})
    return True
