# SPDX-License-Identifier: MIT
"""Finds the jobs that the programs offer and measures them, ours and the peers in turn.

A measurement is registered under the name job/who[/size]; who is "ours", a peer or "floor".
"""

import json
import re
import statistics
import subprocess
import time


TO_NS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class DifferentResults(Exception):
    """Ours and a peer did not compute the same."""


class TableDiffers(Exception):
    """The programs and bench/rows.py do not speak of the same jobs."""


def parse_name(name):
    """The job, who does it and at what size (None: it has no sizes)."""
    job, who, *rest = name.split("/")
    size = int(rest[0]) if rest and rest[0].isdigit() else None
    return job, who, size


def jobs_of(folder, arch, table, wanted, largest=None, emulator=()):
    """What the programs in a folder offer and the table describes: a list of dictionaries,
    each one job at one size with the measurements that belong to it. Programs of another
    processor are asked by an emulator."""
    described = {row.job: row for section in table.values() for row in section}
    offered = {}
    for program in sorted(folder.iterdir()):
        listing = subprocess.run([*emulator, program, "--benchmark_list_tests"], check=True,
                                 capture_output=True, text=True).stdout
        for name in listing.splitlines():
            job, who, size = parse_name(name)
            entry = offered.setdefault((job, size), {
                "arch": arch, "job": job, "size": size, "program": program, "names": {}})
            entry["names"][who] = name
    compare_with_table(offered, arch, described)

    order = list(described)
    jobs = sorted(offered.values(),
                  key=lambda entry: (order.index(entry["job"]), entry["size"] or 0))
    return [{**entry, "clock": described[entry["job"]].clock} for entry in jobs
            if wanted.search(entry["job"]) and arch in described[entry["job"]].only_at
            and (largest is None or (entry["size"] or 0) <= largest)]


def compare_with_table(offered, arch, described):
    """Every job has its row, every row its job, and every aim the peer that it names."""
    peers = {}
    for (job, _), entry in offered.items():
        peers.setdefault(job, set()).update(entry["names"])
    for job in peers.keys() - described.keys():
        raise TableDiffers(f"{job} is measured, but bench/rows.py does not describe it")
    for job, row in described.items():
        if arch not in row.only_at:
            continue
        if "ours" not in peers.get(job, ()):
            raise TableDiffers(f"bench/rows.py describes {job}, but no program measures it")
        for peer in row.aims.keys() - peers[job]:
            raise TableDiffers(f"{job}: an aim against {peer}, which no program measures")


def run_once(program, name, clock, seconds):
    """Nanoseconds for one operation, and the fingerprint of what was computed."""
    for _ in range(5):
        figures = figures_of(program, name, seconds)
        measured = figures["cpu_time"] * TO_NS[figures["time_unit"]] * figures["iterations"]
        # On a busy machine a program may give up early, after an iteration or two.
        if clock != "cpu" or measured >= seconds * 1e9 / 2 or "iterations:" in name:
            break
    return cost_of(figures, clock)


def cost_of(figures, clock):
    """Nanoseconds for one operation, and the fingerprint of what was computed."""
    ns = figures[f"{clock}_time"] * TO_NS[figures["time_unit"]]
    return ns / figures["operations"], int(figures["digest"])


def figures_of(program, name, seconds):
    """What a benchmark program reports of one measurement."""
    done = subprocess.run([program, *options_of(name, seconds)], check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return parse_figures(name, done.stdout)


def options_of(name, seconds):
    """The options of a benchmark program for one measurement."""
    pattern = "^" + re.sub(r"([.+*?()\[\]{}|^$\\])", r"\\\1", name) + "$"
    return [f"--benchmark_filter={pattern}", f"--benchmark_min_time={seconds}",
            "--benchmark_format=json"]


def parse_figures(name, text):
    (figures,) = json.loads(text)["benchmarks"]
    if figures.get("error_occurred"):
        raise RuntimeError(f"{name}: {figures['error_message']}")
    return figures


def run(jobs, rounds, seconds, say=lambda text: None, deadline=float("inf")):
    """Measures all jobs in each round, so that a disturbance spoils one round of many jobs
    and not all rounds of one. Who begins changes from round to round. After the third, no
    round begins that would end after the deadline, by the monotonic clock."""
    times = [{who: [] for who in job["names"]} for job in jobs]
    began = time.monotonic()
    for turn in range(rounds):
        now = time.monotonic()
        if turn >= 3 and now + (now - began) / turn > deadline:
            break
        say(f"round {turn + 1} of {rounds}")
        for job, its_times in zip(jobs, times):
            whos = list(job["names"])
            whos = whos[turn % len(whos):] + whos[:turn % len(whos)]
            digests = {}
            for who in whos:
                nanoseconds, digests[who] = run_once(job["program"], job["names"][who],
                                                     job["clock"], seconds)
                its_times[who].append(nanoseconds)
            compare_results(job, digests)
    return [summary(job, its_times) for job, its_times in zip(jobs, times)]


def compare_results(job, digests):
    """All who do a job must have computed the same, but for the floor."""
    if len({digest for who, digest in digests.items() if who != "floor"}) > 1:
        raise DifferentResults(f"{job['job']}, size {job['size']}: {digests}")


def summary(job, times):
    """Medians, and for each peer the median and the quartiles of the rounds' ratios."""
    result = {"arch": job["arch"], "job": job["job"], "size": job["size"],
              "rounds": len(times["ours"]), "ours": statistics.median(times["ours"]),
              "peers": {}}
    if "floor" in times:
        result["floor"] = statistics.median(times["floor"])
    for peer in times:
        if peer in ("ours", "floor"):
            continue
        low, middle, high = quartiles([ours / theirs for ours, theirs
                                       in zip(times["ours"], times[peer])])
        result["peers"][peer] = {"ns": statistics.median(times[peer]), "ratio": middle,
                                 "low": low, "high": high}
    return result


def quartiles(values):
    if len(values) == 1:
        return values * 3
    return statistics.quantiles(values, n=4, method="inclusive")
