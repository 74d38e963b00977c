"""The counts that a change is held against, and on what machine they were made."""

import json
import platform
import subprocess
from pathlib import Path

PATH = Path(__file__).resolve().parent / "baseline.json"
MOST_GROWTH = 1.05
# What grows by no more than this has not grown: a handful of instructions comes and goes.
LEAST_GROWTH = 4
PACKAGES = (
    "libc6",
    "libstdc++6",
    "libcairo2",
    "libpixman-1-0",
    "libfreetype6",
    "libfontconfig1",
    "libexpat1",
    "fonts-dejavu-core",
    "fonts-liberation",
    "fonts-droid-fallback",
    "valgrind",
    "g++-12",
)
# What the libraries choose their fast paths by.
PROCESSOR_FLAGS = ("ssse3", "sse4_2", "avx2", "bmi2", "avx512vl")


def _version(package):
    done = subprocess.run(
        ["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True, check=False
    )
    return done.stdout if done.returncode == 0 else "-"


def surroundings(fonts):
    """What the counts depend on besides the program. `fonts`: what the two families may be."""
    flags = set()
    for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("flags"):
            flags.update(line.split())
    return {
        "machine": platform.machine(),
        "fonts": fonts,
        "processor": [flag for flag in PROCESSOR_FLAGS if flag in flags],
        "packages": {package: _version(package) for package in PACKAGES},
    }


def write(measures, where):
    counts = {m.key: {"value": m.value, "ratio": m.ratio} for m in measures if m.counted}
    PATH.write_text(json.dumps({"surroundings": where, "counts": counts}, indent=1) + "\n", encoding="utf-8")


def differences(then, now):
    """In words, what is not as it was when the baseline was made."""
    told = [
        f"{key} is {now[key]}, was {then[key]}" for key in ("machine", "fonts", "processor") if then[key] != now[key]
    ]
    return told + [
        f"{name} is {version}, was {then['packages'].get(name, '-')}"
        for name, version in now["packages"].items()
        if version != then["packages"].get(name, "-")
    ]


def _has_grown(before, now):
    return now > before * MOST_GROWTH and now - before > LEAST_GROWTH


def check(measures, where):
    """Prints what is wrong; the number of things that are."""
    baseline = json.loads(PATH.read_text(encoding="utf-8"))
    other = differences(baseline["surroundings"], where)
    if other:
        print("not the surroundings of the baseline: " + "; ".join(other))
        print("so growth is looked for in the ratios of this run, not in the counts themselves")
    wrong = 0
    for measure in (m for m in measures if m.counted):
        if not measure.ok:
            wrong += 1
            print(f"over its limit: {measure.name}: {measure.held:g}, at most {measure.limit:g}")
        before = baseline["counts"].get(measure.key)
        if before is None:
            print(f"new, so not compared: {measure.name}")
        elif other and not measure.difference and before["ratio"] is not None:
            if measure.ratio > before["ratio"] * MOST_GROWTH:
                wrong += 1
                print(f"grown: {measure.name}: ratio {measure.ratio:.4f}, was {before['ratio']:.4f}")
        elif not other and _has_grown(before["value"], measure.value):
            wrong += 1
            print(f"grown: {measure.name}: {measure.value:,.0f}, was {before['value']:,.0f}")
    for key in baseline["counts"].keys() - {m.key for m in measures}:
        wrong += 1
        print(f"not measured any more: {key}")
    return wrong
