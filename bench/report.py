# SPDX-License-Identifier: MIT
"""Makes the tables, the plots and docs/performance.md from figures. The document is wholly
generated: its text comes from bench/rows.py and from here."""

import pathlib
import subprocess

import rows

COUNTS = pathlib.Path(__file__).resolve().parent / "instructions" / "counts.txt"

INTRODUCTION = """<!-- SPDX-License-Identifier: MIT -->
<!-- Written by bench/run; remarks are in bench/rows.py. -->
# Performance

The library beside what its users would pick instead, job by job. Made by `bench/run` from a
clean clone; `bench/run --quick` gives a first impression.

| | |
|---|---|
| date | {date} |
| commit | {commit} |
| processor | {processor} |
| system | {system} |
| compiler | {compiler}, `-O2` |
| load when it began | {load:.2f} |
| took | {rounds} rounds, {minutes:.0f} minutes |

Ours and the peers take turns, each in a process of its own, for several rounds; before a
figure counts, all must have computed the same. *ratio* is ours / peer: the median over the
rounds of the two figures of one round, below 1 where ours is faster. The peers are Debian's
packages of the same word size. Times are nanoseconds for one operation, processor time where
nothing else is said. The middle half of the rounds was within {spread:.0%} of the ratio in the
median row; rows marked ~ were less steady than 10 %.

Aims are for the 32-bit build. The *floor* of a job is the least that any implementation of its
behaviour must do; where it was measured, its nanoseconds are shown next to ours.

The processors that most users have come first, in instructions; then the times of this one.
"""

BOARD_INTRODUCTION = """## On MIPS and ARM

Instructions of the library, the C library and the kernel for one operation, counted by the
clocks of two emulated boards with Debian's kernel and Debian's packages of the peers: mipsel on
`malta` with a 24Kf, armhf on `virt` with a Cortex-A15. They are repeatable to some parts in a
thousand; what a cache or a slow memory costs does not show. Compiled by {compilers}, `-O2`.
Sizes above 10,000 are left out, and jobs that are measured by the wall clock or need a server.
Files are in memory (tmpfs), where a sync costs nothing. What each job is, and its floor, is told
with the times.
"""

UNSTEADY = 0.10
COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7")  # distinct for the colour-blind, too


def described():
    return {row.job: row for section in rows.ROWS.values() for row in section}


def aim_of(row, peer, size):
    if row.aim_sizes and size not in row.aim_sizes:
        return None
    return row.aims.get(peer)


def verdict(ratio, aim):
    """Two decimals are shown, and two decimals count."""
    if aim is None:
        return ""
    return "met" if round(ratio, 2) <= aim else "missed"


def spread(figures):
    return (figures["high"] - figures["low"]) / figures["ratio"]


def number(value):
    """Three digits that count, as 0.52, 5.21, 52.1, 521, 5210."""
    if value >= 100:
        return f"{value:.0f}"
    return f"{value:.1f}" if value >= 10 else f"{value:.2f}"


def ratio_text(figures):
    return f"{figures['ratio']:.2f}" + (" ~" if spread(figures) > UNSTEADY else "")


def comparisons(results):
    """One dictionary for each job, size and peer, the figures of both builds in it."""
    lines = {}
    for result in results["jobs"]:
        for peer, figures in result["peers"].items():
            line = lines.setdefault((result["job"], result["size"], peer), {})
            line[result["arch"]] = {**figures, "ours": result["ours"],
                                    "floor": result.get("floor")}
    table = described()
    for (job, size, peer), figures in lines.items():
        row = table[job]
        aim = aim_of(row, peer, size)
        judged = figures.get("i386") or next(iter(figures.values()))
        yield {"row": row, "size": size, "peer": peer, "figures": figures, "aim": aim,
               "verdict": verdict(judged["ratio"], aim), "judged": judged}


def text_table(results, unit="ns"):
    """For the terminal."""
    table = [("job", "size", "build", f"ours {unit}", f"floor {unit}", "peer", f"peer {unit}",
              "ratio", "aim", "")]
    for line in comparisons(results):
        for arch, figures in line["figures"].items():
            aim = line["aim"]
            table.append((
                line["row"].job, str(line["size"] or ""), arch, number(figures["ours"]),
                number(figures["floor"]) if figures["floor"] else "", line["peer"],
                number(figures["ns"]), ratio_text(figures), f"{aim:g}" if aim else "",
                verdict(figures["ratio"], aim)))
    widths = [max(len(line[column]) for line in table) for column in range(len(table[0]))]
    text = "\n".join("  ".join(cell.ljust(width) for cell, width in zip(line, widths)).rstrip()
                     for line in table)
    for row in rows.FOOTPRINT if "footprint" in results else ():
        figure = results["footprint"][row.figure]
        text += f"\n{row.title}: {figure:,}  {verdict(figure, row.aim)}".rstrip()
    return text


def markdown(header, lines):
    yield "| " + " | ".join(header) + " |"
    yield "|" + "---|" * len(header)
    for line in lines:
        yield "| " + " | ".join(line) + " |"


def figure_cells(figures):
    if figures is None:
        return ["", "", ""]
    ours = number(figures["ours"])
    if figures["floor"]:
        ours += f" (floor {number(figures['floor'])})"
    return [ours, number(figures["ns"]), ratio_text(figures)]


def section_text(section, lines):
    yield f"## {section}"
    yield ""
    table = []
    previous = None
    for line in lines:
        row = line["row"]
        aim = f"{line['aim']:g}" if line["aim"] else ""
        table.append([row.title if row != previous else "", f"{line['size'] or '':,}"
                      if line["size"] else "", line["peer"],
                      *figure_cells(line["figures"].get("i386")), aim, line["verdict"],
                      *figure_cells(line["figures"].get("x86_64"))])
        previous = row
    yield from markdown(["job", "size", "peer", "i386: ours", "peer", "ratio", "aim", "",
                         "x86_64: ours", "peer", "ratio"], table)
    yield ""
    for row in dict.fromkeys(line["row"] for line in lines):
        size = f" Size: {row.size_is}." if row.size_is else ""
        clock = " Time by the wall clock." if row.clock == "real" else ""
        note = f" {row.note}" if row.note else ""
        yield f"- {row.title}. Floor: {row.floor}.{size}{clock}{note}"
    yield ""


def missed_text(lines):
    judged = [line for line in lines if line["verdict"]]
    missed = [line for line in judged if line["verdict"] == "missed"]
    yield "## Aims"
    yield ""
    yield f"{len(judged) - len(missed)} of {len(judged)} comparisons with an aim meet it."
    if not missed:
        yield ""
        return
    yield "These do not; the size follows the ratio:"
    yield ""
    together = {}
    for line in missed:
        together.setdefault((line["row"], line["peer"]), []).append(line)
    yield from markdown(["job", "peer", "aim", "ratio", "floor", "reason"], [
        [row.title, peer, f"{lines[0]['aim']:g}", ", ".join(map(size_and_ratio, lines)),
         row.floor, row.note or "not known yet"] for (row, peer), lines in together.items()])
    yield ""


def size_and_ratio(line):
    size = f" ({line['size']:,})" if line["size"] else ""
    return ratio_text(line["judged"]) + size


def footprint_text(figures):
    yield "## Size"
    yield ""
    yield "The 32-bit library."
    yield ""
    yield from markdown(["what", "figure", "aim", "", "remark"], [
        [row.title, f"{figures[row.figure]:,}", f"{row.aim:,}" if row.aim else "",
         verdict(figures[row.figure], row.aim), row.note] for row in rows.FOOTPRINT])
    yield ""


def programs_text(programs):
    yield "## Cost of a program"
    yield ""
    yield ("A 32-bit program that links a shared library and does nothing, with all that the "
           "library needs besides; ours is built for size, the peers as Debian has them. What "
           "the start takes is binding names: ours binds all of them then, and write-protects "
           "the table.")
    yield ""
    yield from markdown(
        ["linked", "shared objects", "instructions until the end", "page faults",
         "peak memory, KiB"],
        [[cost["who"], str(cost["objects"]), f"{cost['instructions']:,}", str(cost["faults"]),
          f"{cost['peak']:,}"] for cost in programs])
    yield ""
    yield ("The stack of each function is in [stack.md](stack.md). Blocks that the operations "
           "ask of the heap, each, and instructions inside the library, counted at `-O2`:")
    yield ""
    yield from markdown(["operation", "blocks", "instructions"], [
        [f"`{name}`", blocks, instructions] for name, instructions, blocks in counted()])
    yield ""


def counted():
    """The lines of the table that bench/instructions/run keeps."""
    for line in COUNTS.read_text().splitlines():
        if line and line[0] != "#":
            yield line.split()


def write_document(folder, results):
    lines = list(comparisons(results))
    spreads = sorted(spread(figures) for line in lines for figures in line["figures"].values())
    text = [INTRODUCTION.format(**results["machine"], spread=spreads[len(spreads) // 2],
                                rounds=min(job["rounds"] for job in results["jobs"]))]
    if "boards" in results:
        text += boards_text(results["boards"])
    text += missed_text(lines)
    for plot in rows.PLOTS:
        if draw(folder / plot.file, plot, results):
            text += [f"![{plot.title}]({plot.file})", ""]
    for section, its_rows in rows.ROWS.items():
        its_lines = [line for line in lines if line["row"] in its_rows]
        if its_lines:
            text += section_text(section, its_lines)
    if "footprint" in results:
        text += footprint_text(results["footprint"])
    if "programs" in results:
        text += programs_text(results["programs"])
    (folder / "performance.md").write_text("\n".join(text).rstrip() + "\n")


def boards_text(results):
    lines = list(comparisons(results))
    targets = list(dict.fromkeys(result["arch"] for result in results["jobs"]))
    yield BOARD_INTRODUCTION.format(**results)
    yield from missed_on_boards(lines, targets)
    header = ["job", "size", "peer"]
    for target in targets:
        header += [f"{target}: ours", "peer", "ratio"]
    for section, its_rows in rows.ROWS.items():
        its_lines = [line for line in lines if line["row"] in its_rows]
        if its_lines:
            # A title of its own: that of the times has its name for links.
            yield from [f"### {section}, instructions", "",
                        *markdown([*header, "aim"], board_lines(its_lines, targets)), ""]


def board_lines(lines, targets):
    previous = None
    for line in lines:
        row = line["row"]
        cells = [row.title if row != previous else "", f"{line['size']:,}" if line["size"] else "",
                 line["peer"]]
        for target in targets:
            cells += figure_cells(line["figures"].get(target))
        yield [*cells, f"{line['aim']:g}" if line["aim"] else ""]
        previous = row


def missed_on_boards(lines, targets):
    together = {}
    counts = []
    for target in targets:
        judged = [line for line in lines if line["aim"] and target in line["figures"]]
        missed = [line for line in judged
                  if verdict(line["figures"][target]["ratio"], line["aim"]) == "missed"]
        counts.append(f"{len(judged) - len(missed)} of {len(judged)} on {target}")
        for line in missed:
            its_ratios = together.setdefault((line["row"], line["peer"], line["aim"]), {})
            its_ratios.setdefault(target, []).append(
                size_and_ratio({**line, "judged": line["figures"][target]}))
    yield f"The aims are those for the times: {', '.join(counts)} are met."
    if together:
        yield "These are not; the size follows the ratio:"
        yield ""
        yield from markdown(["job", "peer", "aim", *targets, "reason"], [
            [row.title, peer, f"{aim:g}", *(", ".join(ratios.get(target, []))
                                            for target in targets), row.board_note or row.note]
            for (row, peer, aim), ratios in together.items()])
    yield ""


def points_of(results, job, who):
    """(size, nanoseconds) of the 32-bit build, of the 64-bit one where there is no other."""
    arches = {result["arch"] for result in results["jobs"] if result["job"] == job}
    arch = "i386" if "i386" in arches else "x86_64"
    for result in results["jobs"]:
        if result["job"] != job or result["arch"] != arch or result["size"] is None:
            continue
        if who in ("ours", "floor"):
            if who in result:
                yield result["size"], result[who]
        elif who in result["peers"]:
            yield result["size"], result["peers"][who]["ns"]


def draw(path, plot, results):
    """Draws a plot with gnuplot, a colour for each job, ours in full lines and the peers' in
    dashes; false when there is nothing to draw."""
    blocks = []
    curves = []
    jobs = list(dict.fromkeys(job for job, _, _ in plot.lines))
    for job, who, legend in plot.lines:
        points = list(points_of(results, job, who))
        if points:
            colour = COLOURS[jobs.index(job) % len(COLOURS)]
            look = "pointtype 7" if who == "ours" else "dashtype 2 pointtype 6"
            curves.append(f"'-' using 1:2 with linespoints linewidth 2 linecolor '{colour}' "
                          f"{look} pointsize 0.6 title \"{legend}\"")
            blocks.append("".join(f"{size} {ns}\n" for size, ns in points) + "e\n")
    if not curves:
        return False
    script = f"""set terminal svg size 760,420 font "sans-serif,13" background "white"
set output "{path}"
set title "{plot.title}: cost of one operation"
set xlabel "{plot.size_is}"
set ylabel "nanoseconds"
set logscale xy
set format x "10^{{%L}}"
set grid
set key outside right Left reverse samplen 3
plot {", ".join(curves)}
""" + "".join(blocks)
    subprocess.run(["gnuplot"], input=script, text=True, check=True)
    return True
