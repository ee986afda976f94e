#!/usr/bin/env python3
"""Runs the benchmarks of a build folder and reports them: bench.py FOLDER [PATTERN].

A row is something of ours against something else, measured by turns in this run. PATTERN is a regular
expression on the rows' names; those on 'farlink print' come together or not at all."""

import json
import os
import re
import resource
import subprocess
import sys
import tempfile

import report
import whole_processes
from draining_peer import DrainingPeer

LIMIT = 420  # seconds
NOTE = "note:"


def insides(folder, pattern, environment):
    """The rows of the Google Benchmark program, whose counters carry the figures."""
    output = f"{environment['TMPDIR']}/insides.json"
    run = subprocess.run([f"{folder}/bench_insides", f"--benchmark_filter={pattern}", f"--benchmark_out={output}"],
                         env=environment, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=LIMIT, check=False)
    if b"Failed to match" in run.stderr:
        return
    if run.returncode != 0:
        sys.exit(run.stderr.decode())
    with open(output, encoding="utf-8") as file:
        entries = json.load(file)["benchmarks"]
    for entry in entries:
        yield report.Row(entry["name"].split("/iterations:")[0], entry["label"], bool(entry["at_least"]),
                         entry["wanted"] or None, [entry["low"], entry["ratio"], entry["high"]],
                         {name.removeprefix(NOTE): value for name, value in entry.items() if name.startswith(NOTE)})


def main():
    folder = os.path.abspath(sys.argv[1])
    pattern = sys.argv[2] if len(sys.argv) > 2 else "."
    _, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))  # for the rows with hundreds of ports
    peer = DrainingPeer()
    with tempfile.TemporaryDirectory(dir=folder) as scratch:
        environment = {**os.environ, "TMPDIR": scratch, "FARLINK_STATE": f"{scratch}/state",
                       "FARLINK_BENCH_PEER": str(peer.port)}
        rows = list(insides(folder, pattern, environment))
        if re.search(pattern, whole_processes.WHAT):
            rows += whole_processes.rows(folder, peer, environment)
    report.write_table(rows, sys.stdout)
    report.write_json(rows, f"{folder}/results.json")
    report.write_picture(rows, f"{folder}/performance.svg")


if __name__ == "__main__":
    main()
