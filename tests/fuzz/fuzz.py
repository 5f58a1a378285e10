#!/usr/bin/env python3
"""Lets libFuzzer make up what strangers can send: fuzz.py [--seconds N] [--only NAME ...] BUILD OUTPUT

BUILD is the folder in which the targets were built with sanitizers. Each target runs for N seconds, two of them at a
time, from the seeds in tests/fuzz/seeds and from what earlier runs have kept in OUTPUT/NAME/corpus. Prints a line for
each, with its executions and how much of its code they reached, and at the end how many passed and failed. An input
that fails is kept in OUTPUT/NAME, and the line says how to run it again.
"""

import argparse
import re
import subprocess
import sys
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

HERE = Path(__file__).resolve().parent
# Far more than any input takes, on a machine that has other work as well.
SECONDS_FOR_AN_INPUT = 60


def main():
    options = _options()
    targets = sorted(file.stem for file in HERE.glob("*.cpp") if not options.only or file.stem in options.only)
    failed = 0 if targets else 1
    with ThreadPoolExecutor(2) as pool:
        for ok, line in pool.map(lambda name: fuzzed(name, options), targets):
            print(line, flush=True)
            failed += not ok
    print(f"{max(len(targets), failed) - failed} passed, {failed} failed")
    return 1 if failed else 0


def _options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--seconds", type=int, default=10, metavar="N")
    parser.add_argument("--only", nargs="+", metavar="NAME", default=[])
    parser.add_argument("build", type=Path)
    parser.add_argument("output", type=Path)
    return parser.parse_args()


def fuzzed(name, options):
    """(whether nothing was found, the line that says what was done)"""
    program = (options.build / "tests/fuzz" / f"fuzz_{name}").resolve()
    folder = options.output / name
    corpus = folder / "corpus"
    corpus.mkdir(parents=True, exist_ok=True)
    command = [program, f"-max_total_time={options.seconds}", f"-timeout={SECONDS_FOR_AN_INPUT}", "-rss_limit_mb=4096",
               "-print_final_stats=1", f"-artifact_prefix={folder}/"]
    words = HERE / f"{name}.dict"
    if words.exists():
        command.append(f"-dict={words}")
    log = folder / "log"
    with log.open("wb") as output:
        status = subprocess.run([*command, corpus, HERE / "seeds" / name], stdin=subprocess.DEVNULL, stdout=output,
                                stderr=subprocess.STDOUT, check=False).returncode
    text = log.read_text(encoding="utf-8", errors="replace")
    return verdict(name, text, status, program, log)


def verdict(name, text, status, program, log):
    executions = re.search(r"stat::number_of_executed_units: (\d+)", text)
    coverage = re.findall(r" cov: (\d+) ft: (\d+) corp: (\d+)", text)
    counters = re.search(r"\((\d+) inline 8-bit counters\)", text)
    if status == 0 and executions and int(executions[1]) > 0 and coverage and counters:
        reached, features, kept = coverage[-1]
        return True, (f"ok   {name}: {executions[1]} executions, {reached} of {counters[1]} edges, "
                      f"{features} features, {kept} inputs kept")
    complaints = [line for line in text.splitlines() if re.search(r"does not hold|ERROR|runtime error|SUMMARY", line)]
    found = re.search(r"Test unit written to (\S+)", text)
    again = [f"     Again: {program} {found[1]}"] if found else []
    return False, "\n".join([f"FAIL {name}: see {log}", *(f"     {line}" for line in complaints), *again])


if __name__ == "__main__":
    sys.exit(main())
