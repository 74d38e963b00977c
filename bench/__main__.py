"""`python3 -m bench BUILD [options]`, called by scripts/bench."""

import argparse
import json
import os
import sys
import time
from pathlib import Path

from desk import SOURCE

from . import baseline, counts
from .measure import text_table
from .programs import Programs, plain_environment


def options():
    parser = argparse.ArgumentParser(prog="scripts/bench")
    parser.add_argument("build", type=Path)
    parser.add_argument("--fonts", default="the machine's")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--update", action="store_true")
    parser.add_argument("--plot", action="store_true")
    parser.add_argument("--armhf", action="store_true")
    parser.add_argument("--boot", action="store_true")
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--runs", type=int, default=21)
    return parser.parse_args()


def load():
    return f"load average {os.getloadavg()[0]:.1f} on {os.cpu_count()} processors"


def main():
    chosen = options()
    if chosen.boot:
        from . import boot

        found = boot.run(chosen.update)
        print(text_table(found))
        return 0 if all(measure.ok for measure in found) else 1
    plain_environment()
    if chosen.armhf:
        from . import emulated

        programs = emulated.EmulatedPrograms(chosen.build)
        programs.fill_font_caches()
        print(text_table(counts.all_counts(programs)))
        return 0
    programs = Programs(chosen.build)
    where = baseline.surroundings(chosen.fonts)
    begin, load_before = time.monotonic(), load()
    if chosen.plot:
        from . import growth

        growth.plot(programs, SOURCE / "docs/images")
        return 0
    measures = counts.all_counts(programs)
    if chosen.check:
        print(text_table(measures))
        wrong = baseline.check(measures, where)
        print(f"{wrong} wrong, {len(measures)} measured in {time.monotonic() - begin:.0f} s")
        return 1 if wrong else 0
    from . import document, times

    measures += times.all_times(programs, chosen.runs, chosen.seconds)
    loads = f"{load_before} at the start, {load()} at the end"
    print(text_table(measures) + "\n" + loads)
    result = chosen.build / "bench.json"
    result.write_text(
        json.dumps({"surroundings": where, "load": loads, "measures": [m.record() for m in measures]}, indent=1) + "\n",
        encoding="utf-8",
    )
    print(f"the same as JSON: {result}")
    if chosen.update:
        baseline.write(measures, where)
        document.write(measures, where, loads)
    return 0 if all(measure.ok for measure in measures) else 1


if __name__ == "__main__":
    sys.exit(main())
