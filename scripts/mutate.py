"""Puts faults into a copy of the sources and runs the tests against each; see scripts/mutate for the usage."""

import argparse
import collections
import concurrent.futures
import itertools
import json
import os
import pathlib
import random
import re
import subprocess
import sys
import time

from mutate_rules import crosses, faults_of

FOLDER = pathlib.Path(os.environ.get("VELMORA_MUTATE_FOLDER", "build-mutate"))
TREE = FOLDER / "tree"
BUILD = TREE / "build"
TESTS = {  # test programs of each room
    "crypto": ["transfer"], "storage": ["transfer"], "transfer": ["transfer"], "model": ["model", "flat", "transport"],
    "notify": ["notify"], "transport": ["transport", "notify", "transfer"],
    "operations": ["transport", "notify", "transfer"],
    "api": ["application", "flat", "transport", "notify", "transfer"],
    "base": ["transfer", "transport", "recovery", "notify", "application", "flat"]}
CHANGED = {  # of what the tests share: what reports which faults are reached, and how long a test waits
    "tests/support/main.cpp": lambda body: '#define LISTEN\n#include "../../src/mutate.h"\n' + body.replace(
        "return RUN_ALL", "mutated::listen();\n    return RUN_ALL"),
    "tests/support/Loopback.h": lambda body: body.replace("deadline = 10000", "deadline = 4000")}
GOAL = 95


class Source:
    """One source with its faults: number -> Fault."""

    def __init__(self, path, text):
        self.path, self.text, self.faults, self.spans = path, text, {}, {}
        self.all = list(faults_of(text))
        self.places = collections.defaultdict(list)
        for fault in self.all:
            self.places[fault.rule, self.read(fault)].append(fault.start)

    def line(self, number):
        return self.text.count("\n", 0, self.faults[number].start) + 1

    def read(self, fault):
        line = self.text[self.text.rfind("\n", 0, fault.start) + 1:self.text.find("\n", fault.start)].strip()
        return " ".join(self.text[fault.start:fault.end].split()), line

    def key(self, number):
        return self.name(self.faults[number])

    def name(self, fault):
        """How lists call a fault; of several that read alike, the second and later ones have a number."""
        text = " | ".join((str(self.path), fault.rule, *self.read(fault)))
        alike = sum(start < fault.start for start in self.places[fault.rule, self.read(fault)])
        return f"{text} | {alike + 1}" if alike else text

    def write(self):
        """Writes the source with what faults it has; where each one stands there is kept for the compiler's errors."""
        edits = []
        for number, fault in self.faults.items():
            size = fault.end - fault.start
            edits.append((fault.start, 1, -size, number, fault.before.replace("%d", str(number)), 0))
            if fault.instead is not None:
                edits.append((fault.start, 2, 0, number, fault.instead.replace("%d", str(number)), size))
            edits.append((fault.end, 0, size, -number, fault.after.replace("%d", str(number)), 0))
        for start, end, instead in {fault.also for fault in self.faults.values() if fault.also}:
            edits.append((start, 1, 0, 0, instead, end - start))
        head = '#include "mutate.h"\n#line 1\n' if self.faults else ""
        parts, at, length = [], 0, 0
        self.spans = collections.defaultdict(list)
        for position, _, _, number, text, skipped in sorted(edits):
            parts.append(self.text[at:position])
            length += len(parts[-1])
            self.spans[abs(number)].append(length)
            parts.append(text)
            length += len(text)
            self.spans[abs(number)].append(length)
            at = position + skipped
        self.spans.pop(0, None)
        body = "".join(parts) + self.text[at:]
        self.lines = [0] + [match.end() for match in re.finditer("\n", body)]
        put(TREE / self.path, head + body)

    def at(self, line, column):
        """The innermost fault at a place of the written source; those of the line when none is just there."""
        start = self.lines[line - 1]
        end = self.lines[line] if line < len(self.lines) else start + 1000
        place = start + column - 1
        exact = [(span[-1] - span[0], number) for number, span in self.spans.items() if span[0] <= place < span[-1]]
        return ([min(exact)[1]] if exact else
                [number for number, span in self.spans.items() if span[0] < end and start <= span[-1]])

    def before(self, line):
        """The last fault above: an error may stand at the end of a function."""
        above = [(span[0], number) for number, span in self.spans.items() if span[0] < self.lines[line - 1]]
        return [max(above)[1]] if above else []


def put(path, text):
    """Writes a file unless it holds that already: what did not change is not built again."""
    if not path.is_file() or path.read_text() != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def copy_tree(changed):
    names = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], check=True,
                           capture_output=True, text=True).stdout.split("\0")
    for name in map(pathlib.Path, filter(None, names)):
        if name in changed or not name.is_file():
            continue
        target = TREE / name
        data = name.read_bytes()
        if not target.is_file() or target.read_bytes() != data:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(data)
            target.chmod(name.stat().st_mode)


def rejected(sources, output):
    """Which faults the compiler's errors are about. An error inside a template comes behind the places that use it."""
    errors, uses = [], []
    output = re.sub(r"/src/([\w/]+)\.h?:(\d+): Parse error",  # of moc, which reads no #line
                    lambda match: f"/src/{match[1]}.h:{int(match[2]) - 2}:1: error", output)
    for match in re.finditer(r"(?m)^(?:.*?([\w/.]+):(\d+):(\d+):\s+(error|required from|note)|.*: In )", output):
        name, line, column, kind = match.groups()
        place = (pathlib.Path("src", (name or "").rpartition("/src/")[2]), int(line or 0), int(column or 0))
        if not kind:
            uses = []
        elif kind == "required from":
            uses.append(place)
        elif kind == "error":
            errors.append([place, *uses])
        elif errors:
            errors[-1].append(place)
    bad = collections.defaultdict(set)
    for places in errors:
        ours = [(path, line, column) for path, line, column in places if path in sources and sources[path].spans]
        found = [(path, sources[path].at(line, column)) for path, line, column in ours]
        found = [(path, numbers) for path, numbers in found if numbers]
        found += [(path, sources[path].before(line)) for path, line, _ in ours]
        if found:
            bad[found[0][0]].update(found[0][1])
    return bad


def build(sources, programs):
    """Builds, and takes out what the compiler does not accept, until it accepts all."""
    store = FOLDER / "rejected.json"
    known = set(json.loads(store.read_text())) if store.exists() else set()
    for source in sources.values():
        for number in [number for number in source.faults if source.key(number) in known]:
            del source.faults[number]
        source.write()
    if not (BUILD / "build.ninja").exists():
        subprocess.run(["cmake", "--preset", "default"], cwd=TREE, check=True, stdout=subprocess.DEVNULL)
    command = ["cmake", "--build", "build", "--target", *("test_" + name for name in programs), "--", "-k", "0"]
    for attempt in range(12):
        result = subprocess.run(command, cwd=TREE, capture_output=True, text=True, check=False)
        if result.returncode == 0:
            return
        bad = rejected(sources, result.stdout)
        if not bad:
            sys.exit(result.stdout[-6000:] + result.stderr[-2000:])
        for path, numbers in bad.items():
            known.update(map(sources[path].key, numbers))
            for number in numbers:
                del sources[path].faults[number]
            sources[path].write()
        store.write_text(json.dumps(sorted(known)))
        print(f"... build {attempt + 1}: {sum(map(len, bad.values()))} faults do not compile", file=sys.stderr)
    sys.exit("The faults could not be built.")


def reach(programs, jobs):
    """Runs the programs without a fault: number -> [(seconds, program, test)]."""
    reached = collections.defaultdict(list)

    def run(program):
        log = (BUILD / f"reached-{program}.txt").resolve()
        log.unlink(missing_ok=True)
        subprocess.run([BUILD / "bin" / f"test_{program}"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       env={**os.environ, "VELMORA_FAULTS_REACHED": str(log)}, timeout=600, check=False)
        return [(program, line.split()) for line in log.read_text().splitlines()]

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        for program, (name, milliseconds, result, *numbers) in itertools.chain(*pool.map(run, programs)):
            if result != "ok":
                print(f"... {name} fails without a fault and is left out", file=sys.stderr)
                continue
            for number in numbers:
                reached[int(number)].append((int(milliseconds) / 1000, program, name))
    return reached


def passes(command, number, limit):
    """Whether tests pass with a fault, and in time."""
    try:
        return subprocess.run(command, env={**os.environ, "VELMORA_FAULT": str(number)}, timeout=limit, check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
    except subprocess.TimeoutExpired:
        return False


def is_caught(number, tests):
    """Runs the tests that reach a fault, the quick ones first. A deadline also passes on a busy machine, so a late
    failure counts only when the same tests then pass without the fault."""
    tests = sorted(tests)
    for group in (tests[:6], tests[6:40], *([test] for test in tests[40:])):
        for program in sorted({program for _, program, _ in group}):
            names = [name for _, of, name in group if of == program]
            usual = sum(seconds for seconds, of, _ in group if of == program)
            command = [BUILD / "bin" / f"test_{program}", "--gtest_fail_fast", "--gtest_filter=" + ":".join(names)]
            for _ in range(3):
                start = time.monotonic()
                if passes(command, number, 6 + 3 * usual):
                    break
                if time.monotonic() - start < usual + 2 or passes(command, 0, 6 + 3 * usual):
                    return True
    return False


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--count", type=int, default=150)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=2)
    parser.add_argument("--again", action="store_true")
    parser.add_argument("--build", action="store_true")
    parser.add_argument("rooms", nargs="*", metavar="ROOM")
    options = parser.parse_args()
    rooms = options.rooms or list(TESTS)
    if set(rooms) - set(TESTS):
        parser.error("rooms are " + ", ".join(TESTS))
    equivalent = {line.strip() for line in open("scripts/mutate.equivalent", encoding="utf-8") if " | " in line}
    state = FOLDER / "caught.txt"
    if not options.again and not options.build:
        state.unlink(missing_ok=True)
    caught_before = set(state.read_text().splitlines()) if state.exists() else set()

    sources, room_of, number = {}, {}, 0
    for room in rooms:
        found = []
        for path in sorted(pathlib.Path("src", room).rglob("*.*")):
            if path.suffix in (".cpp", ".h") and "Windows" not in path.name:
                sources[path] = Source(path, path.read_text())
                found += [(path, fault) for fault in sources[path].all]
        random.Random(f"{options.seed} {room}").shuffle(found)
        taken = 0
        for path, fault in found:
            if taken < options.count * 3 // 2 and not any(crosses(fault, x) for x in sources[path].faults.values()):
                taken, number = taken + 1, number + 1
                sources[path].faults[number] = fault
                room_of[number] = room
    names = {source.name(fault) for source in sources.values() for fault in source.all}
    for line in sorted(equivalent - names):
        if pathlib.Path(line.partition(" | ")[0]) in sources:
            print(f"... scripts/mutate.equivalent names what is not there: {line}", file=sys.stderr)
    programs = sorted({program for room in rooms for program in TESTS[room]})
    copy_tree([*sources, *map(pathlib.Path, CHANGED)])
    header = pathlib.Path("scripts/mutate.h").read_text()
    put(TREE / "src/mutate.h", f"#define FAULTS {number + 1}\n" + header)
    for name, change in CHANGED.items():
        put(TREE / name, change(pathlib.Path(name).read_text()))
    build(sources, programs)
    if options.build:
        return
    where = {number: source for source in sources.values() for number in source.faults}
    made = collections.defaultdict(list)
    for number in sorted(where):
        if len(made[room_of[number]]) < options.count:
            made[room_of[number]].append(number)
    reached = reach(programs, options.jobs)

    def judge(number):
        source = where[number]
        key = source.key(number)
        if key in caught_before:
            return True
        tests = [test for test in reached[number] if test[1] in TESTS[room_of[number]]]
        if is_caught(number, tests):
            with state.open("a") as file:
                file.write(key + "\n")
            return True
        note = "" if tests else "  (no test reaches it)"
        survivors.append(f"{number:4} {source.path}:{source.line(number)}{note}\n     {key}")
        print(survivors[-1], flush=True)
        return False

    table, survivors = [], []
    for room in rooms:
        start = time.monotonic()
        listed = [number for number in made[room] if where[number].key(number) in equivalent]
        open_faults = [number for number in made[room] if number not in listed]
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            caught = sum(pool.map(judge, open_faults))
        lost = len(open_faults) - caught
        share = 100 * caught / max(1, len(open_faults))
        table.append((room, len(made[room]), caught, len(listed), lost, share))
        print(f"... {room}: {time.monotonic() - start:.0f} s", file=sys.stderr)
    (FOLDER / "survivors.txt").write_text("\n".join(survivors) + "\n")
    print(f"\n{'room':12}{'made':>6}{'caught':>8}{'equivalent':>12}{'survived':>10}{'caught %':>10}")
    for room, *counts, share in table:
        print("{:12}{:6}{:8}{:12}{:10}{:10.1f}".format(room, *counts, share))
    sys.exit(any(row[-1] < GOAL for row in table))


main()
