"""Writes the measured parts of docs/performance.md, which stand between marks, and the plot beside it."""

import pathlib
import re
import subprocess
import tempfile

import report

# Order and look of the implementations in tables and plot: name, colour, width of the line.
IMPLEMENTATIONS = {
    "vesk": ("#d62728", 3),
    "free identifier": ("#000000", 1.5),
    "literal": ("#ff9896", 1.5),
    "protobuf heap": ("#1f77b4", 1.5),
    "protobuf arena": ("#17becf", 1.5),
    "protobuf reused": ("#2ca02c", 1.5),
    "protobuf-c malloc": ("#9467bd", 1.5),
    "protobuf-c arena": ("#c5b0d5", 1.5),
    "nanopb malloc": ("#8c564b", 1.5),
    "floor": ("#7f7f7f", 1.5),
}
# The floor is far below, and the others would lie on one another.
PLOTTED = [name for name in IMPLEMENTATIONS if name not in ("floor", report.FREE_IDENTIFIER)]


def _table(rows, words=1):
    """The first columns have words in them, the others figures."""
    head, *body = [["" if cell is None else str(cell) for cell in row] for row in rows]
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * words + "---:|" * (len(head) - words)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in body]) + "\n"


def _summary_table(summary, targets):
    """The means and their targets, a row per kind of data."""
    rows = [["", "rows"] + list(report.OPERATIONS.values())]
    for data, means in report.geometric_means(summary).items():
        cells = []
        for name, target in targets[data].items():
            ratio = f"{means[name]:.2f}"
            met = report.is_met(means[name], target)
            cells.append(f"{f'**{ratio}**' if met else ratio} of {report.target_text(target)}")
        rows.append([report.DATA[data], means["rows"]] + cells)
    return _table(rows)


def _limits_table(summary):
    rows = [["", "operation", "ratio", "above", "with a free identifier"]]
    for limit, ratio, workload, name, free in report.rows_above_limits(summary):
        rows.append([report.title_of(workload), report.OPERATIONS[name], f"{ratio:.2f}", f"{limit:.1f}", free])
    return _table(rows, words=2) if len(rows) > 1 else "None.\n"


def _ratio_table(summary):
    """A row per workload; in a cell the ratio to the fastest peer, bold where it is above a limit."""
    rows = [["", "data"] + list(report.OPERATIONS.values())]
    for workload, result in summary.items():
        if workload.startswith("growth_"):
            continue
        cells = []
        for name in report.OPERATIONS:
            operation = result["operations"][name]
            ratio = f"{operation['ratios'][operation['fastest_peer']]:.2f}"
            cells.append(ratio if operation["above_limit"] is None else f"**{ratio}**")
        rows.append([report.title_of(workload), report.DATA[result["data"]]] + cells)
    return _table(rows, words=2)


def _time_tables(summary):
    text = ""
    for workload, result in summary.items():
        text += f"**{report.title_of(workload)}** (`{workload}`: {report.DATA[result['data']]}; up to "
        text += f"{result['longest_encoding']:,} bytes)\n\n"
        if report.notes(result):
            text += f"{report.notes(result)}.\n\n"
        operations = result["operations"]
        rows = [[""] + list(report.OPERATIONS.values())]
        for implementation in IMPLEMENTATIONS:
            times = [operations[name]["nanoseconds"].get(implementation) for name in report.OPERATIONS]
            if any(time is not None for time in times):
                rows.append([implementation] + [time and report.in_words(time) for time in times])
        text += _table(rows) + "\n"
    return text


def _count_table(ours, literal, cell):
    """A row per workload; cell(our counts, the literal implementation's) is what stands under an operation."""
    rows = [[""] + list(report.OPERATIONS.values())]
    for workload, operations in ours.items():
        if workload in literal:
            rows.append([report.title_of(workload)] +
                        [cell(operations[name], literal[workload][name]) for name in report.OPERATIONS])
    return _table(rows)


def _instructions(ours, literal):
    return f"{ours['instructions']:,.0f} ({ours['instructions'] / literal['instructions']:.2f})"


def _mispredictions(ours, literal):
    return f"{ours['mispredictions']:,.1f} ({literal['mispredictions']:,.1f})"


def _growth_table(exponents):
    return _table([list(report.OPERATIONS.values()), [f"{exponents[name]:.3f}" for name in report.OPERATIONS]])


def _replace_part(text, name, content):
    pattern = re.compile(f"(<!-- measured: {name} -->\n).*?(<!-- end -->)", re.S)
    text, replaced = pattern.subn(lambda match: match.group(1) + content.strip("\n") + "\n" + match.group(2), text)
    if replaced != 1:
        raise ValueError(f"the document has {replaced} places for {name}")
    return text


def _write_parts(path, parts):
    path = pathlib.Path(path)
    text = path.read_text(encoding="utf-8")
    for name, content in parts.items():
        text = _replace_part(text, name, content)
    path.write_text(text, encoding="utf-8")


def write_document(path, machine, summary, counted):
    _write_parts(path, {
        "machine": f"Measured on {machine['cpu']}, {machine['compiler']}.",
        "summary": _summary_table(summary, report.targets_for("")),
        "limits": _limits_table(summary),
        "ratios": _ratio_table(summary),
        "times": _time_tables(summary),
        "instructions": _count_table(counted["counts"], counted["literal_counts"], _instructions),
        "mispredictions": _count_table(counted["counts"], counted["literal_counts"], _mispredictions),
        "growth": _growth_table(counted["growth_exponents"]),
    })


def write_variant(path, machine, cpu, summary):
    """The part on the best variant of the library."""
    _write_parts(path, {"variant": f"`{cpu}`, measured on {machine['cpu']}, {machine['compiler']}.\n\n" +
                                   _summary_table(summary, report.targets_for(cpu)) +
                                   "\nRows above the limits:\n\n" + _limits_table(summary)})


def _style(implementation):
    colour, width = IMPLEMENTATIONS[implementation]
    return f"with linespoints pointtype 7 pointsize 0.4 linewidth {width} linecolor rgb '{colour}'"


def _curves(folder, operation, series):
    """The gnuplot terms for one panel: a curve per implementation, its points in a file."""
    curves = []
    for implementation in PLOTTED:
        points = [(records, result["operations"][operation]["nanoseconds"].get(implementation))
                  for records, result in series.items()]
        points = [f"{records} {time / records}\n" for records, time in points if time is not None]
        if points:
            data = pathlib.Path(folder) / f"{operation}, {implementation}"
            data.write_text("".join(points), encoding="utf-8")
            curves.append(f"'{data}' {_style(implementation)} title '{operation}, {implementation}' noenhanced")
    return ", ".join(curves)


def write_plot(path, summary):
    """Nanoseconds per record over the number of records, a panel per operation."""
    series = {int(workload.removeprefix("growth_")): result for workload, result in summary.items()
              if workload.startswith("growth_")}
    script = f"""
        set terminal svg size 1100,740 font 'sans-serif,12' background '#ffffff'
        set output '{path}'
        set logscale xy
        set format x '10^{{%T}}'
        set format y '%g'
        set grid
        set xlabel 'records' offset 0,0.5
        unset key
        set multiplot layout 2,3 margins 0.07,0.98,0.12,0.95 spacing 0.06,0.12
        """
    with tempfile.TemporaryDirectory() as folder:
        for index, (operation, title) in enumerate(report.OPERATIONS.items()):
            script += "set ylabel 'ns per record' offset 1,0\n" if index % 3 == 0 else "unset ylabel\n"
            script += f"set title '{title}' offset 0,-0.5\nplot {_curves(folder, operation, series)}\n"
        # The key of all panels, in a plot of its own.
        entries = ", ".join(f"-1 {_style(name)} title '{name}'" for name in PLOTTED)
        script += f"""
            set margins screen 0, screen 1, screen 0, screen 0.05
            unset border; unset tics; unset grid; unset title; unset xlabel; unset ylabel; unset logscale
            set key center center horizontal maxrows 1 samplen 2
            plot [0:1] [0:1] {entries}
            unset multiplot
            """
        subprocess.run(["gnuplot"], input=script, text=True, check=True)
