#!/usr/bin/python3
"""Measures how strong the tests are: changes one thing at a time in a source and checks whether a test notices.

    mutants.py [--share PERCENT] [--seed S] [--jobs N] [--scratch DIR] [--json FILE] SOURCE...

In a scratch copy of the project the sources get all their changes at once, each behind a switch (switches.py), and are
built once. Each test runs once in order to see which changes it reaches. Then each change is made in turn, and the tests
that reach it run, the fastest ones first, until one fails. All of it runs as unprivileged users, because a changed file
operation may remove files.

For each source the result is how many changes were noticed ("killed"), and a list of those that were not ("survived").
Changes that give the same optimised code are not counted, nor those that do not compile. accepted.txt lists survivors,
each with its reason, that do not change what the program does for its users.
"""
import argparse
import concurrent.futures
import contextlib
import filecmp
import fnmatch
import json
import mmap
import os
import pathlib
import queue
import random
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

from switches import Source

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parent.parent
MOST_CHANGES = 2000  # of a source
PATIENCE_SECONDS = 60  # for one test that nothing was changed for
MOST_TEST_SECONDS = 30  # that the tests of a change take altogether; the slowest are left out
NOBODY = 65534

# --- which tests look at a source ------------------------------------------------------------------------------------


def programs_for(source):
    """The test programs of programs.txt for a source, in the order in which they are tried."""
    for line in (HERE / "programs.txt").read_text().splitlines():
        pattern, _, programs = line.partition(":")
        if not line.startswith("#") and programs and fnmatch.fnmatch(str(source), pattern.strip()):
            return programs.split()
    sys.exit(f"mutants: programs.txt names no test program for {source}")


# --- the scratch copy of the project ---------------------------------------------------------------------------------


def run(*command, **options):
    return subprocess.run(command, text=True, errors="replace", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, **options)


def demand(result, what):
    if result.returncode != 0:
        sys.exit(f"mutants: {what}:\n{result.stdout[-3000:]}")
    return result


class Scratch:
    """A copy of the project in which some sources have switches, not optimised, because compiling takes longest."""

    def __init__(self, top, sources):
        self.top, self.sources, self.changes = top / "copy", sources, {}
        self.state = top / "state"
        self.switched = top / "switched"  # what the sources are made of, until they are changed
        for folder in (self.top / "build", self.state, self.switched):
            folder.mkdir(parents=True, exist_ok=True)
        self.update()
        demand(self.configure(), "the scratch copy cannot be configured")
        self.commands = self.compile_commands()

    def update(self):
        """Copies what changed since the last run, and removes what is gone. Sources with switches follow."""
        files = set(run("git", "ls-files", "-co", "--exclude-standard", cwd=PROJECT).stdout.splitlines())
        for file in files - {str(source) for source in self.sources}:
            original, copy = PROJECT / file, self.top / file
            if original.is_file() and not (copy.exists() and filecmp.cmp(original, copy, shallow=False)):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(original, copy)
        for folder, folders, names in os.walk(self.top):
            if pathlib.Path(folder) == self.top:
                folders[:] = set(folders) - {"build"}
            for path in (pathlib.Path(folder) / name for name in names):
                if str(path.relative_to(self.top)) not in files:
                    path.unlink()
        for source in self.sources:
            if not (self.top / source).exists():
                (self.top / source).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(PROJECT / source, self.top / source)

    def configure(self):
        """For the processor of this machine: not all that 64-bit programs use is there for 32 bits as well."""
        runtime = self.top / "build/switches.o"
        demand(run("g++", "-O1", "-c", "-fPIC", HERE / "switches.cpp", "-o", runtime,
                   f"-DSWITCHES_COUNT={MOST_CHANGES * len(self.sources)}", f'-DSWITCHES_DIRECTORY="{self.state}"'),
               "switches.cpp cannot be compiled")
        return run("cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                   f"-DCMAKE_CXX_FLAGS=-O0 -w -D_GLIBCXX_ASSERTIONS -include {HERE}/switches.h", f"-DCMAKE_EXE_LINKER_FLAGS={runtime}",
                   f"-DCMAKE_SHARED_LINKER_FLAGS={runtime}", "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST",
                   cwd=self.top)

    def compile_commands(self):
        """For each source, the command that compiles it for the product, up to the object's name."""
        commands = {}
        for entry in json.loads((self.top / "build/compile_commands.json").read_text()):
            command, _, rest = entry["command"].partition(" -o ")
            if "_test" not in rest.split()[0]:
                commands.setdefault(os.path.relpath(entry["file"], self.top), shlex.split(command))
        return commands

    def compile(self, source, *options):
        return run(*self.commands[str(source)], *options, self.top / source, cwd=self.top / "build")

    def give_switches(self, source):
        """Changes that do not compile get no switch, nor do constants whose values the compiler needs."""
        first = MOST_CHANGES * self.sources.index(source)
        arguments = [word for word in self.commands[str(source)][1:] if word.startswith(("-I", "-D", "-std", "-isystem"))]
        # A header beside the source is found there. From the copy it would be another file, and be read a second time.
        arguments = [re.sub(rf"^-I{self.top}/(?!build/)", f"-I{PROJECT}/", word) for word in arguments]
        left_out = set()
        while True:
            switched = Source(PROJECT / source, arguments, first, left_out)
            if (self.top / source).read_bytes() != switched.text():
                (self.top / source).write_bytes(switched.text())
            compiled = self.compile(source, "-fsyntax-only")
            if compiled.returncode == 0:
                break
            place = rf"^{re.escape(str(self.top / source))}:(\d+):\d+: +(?:error|required)"
            lines = {int(line) for line in re.findall(place, compiled.stdout, re.MULTILINE)}
            wrong = {change["number"] for change in switched.changes if change["line"] in lines} - left_out
            wrong = wrong or {change["number"] for change in switched.changes if change["named"]} - left_out
            if not wrong:
                demand(compiled, f"{source} with switches cannot be compiled")
            left_out |= wrong
        if len(switched.changes) > MOST_CHANGES:
            sys.exit(f"mutants: {source} has more than {MOST_CHANGES} changes")
        return switched.changes, left_out

    def build(self, programs):
        demand(run("ninja", "-C", "build", *sorted(programs), cwd=self.top), "the scratch copy cannot be built")
        (self.top / "build").chmod(0o1777)  # the tests of completions keep there what zsh has of its own

    def optimised_code(self, source, number):
        """The code when a change, or none (-1), is made for good; None if it does not compile."""
        with tempfile.NamedTemporaryFile(suffix=".o") as compiled:
            result = self.compile(source, "-O2", f"-DSWITCHES_FIXED={number}", "-c", "-o", compiled.name)
            if number == -1:
                demand(result, f"{source} cannot be optimised")
            return pathlib.Path(compiled.name).read_bytes() if result.returncode == 0 else None


# --- running tests ---------------------------------------------------------------------------------------------------


class Worker:
    """An unprivileged user of its own, with the choice of the change that is made for it."""

    def __init__(self, scratch, number):
        self.scratch = scratch
        self.user = NOBODY - number if os.getuid() == 0 else os.getuid()
        self.home = scratch.state / f"home.{self.user}"
        self.home.mkdir(exist_ok=True)
        reached = scratch.state / f"reached.{self.user}"
        reached.write_bytes(bytes(MOST_CHANGES * len(scratch.sources)))
        for path in (self.home, reached):
            os.chown(path, self.user, -1)
        with open(reached, "r+b") as file:
            self.reached = mmap.mmap(file.fileno(), 0)
        self.choose(None)

    def choose(self, number):
        (self.scratch.state / f"chosen.{self.user}").write_text("" if number is None else str(number))

    def become(self, seconds):
        """In a child: no rights, bounded memory, files and time, a group of its own so that all of it can be ended."""
        os.setsid()
        for ignored in (signal.SIGINT, signal.SIGQUIT):  # by a shell that starts something in the background
            signal.signal(ignored, signal.SIG_DFL)
        for limit, most in ((resource.RLIMIT_AS, 6 << 30), (resource.RLIMIT_FSIZE, 1 << 30), (resource.RLIMIT_CORE, 0),
                            (resource.RLIMIT_CPU, int(seconds) + 2)):
            resource.setrlimit(limit, (most, most))
        if os.getuid() == 0:
            os.setgroups([])
            os.setgid(NOBODY)
            os.setuid(self.user)

    def passes(self, program, tests, seconds):
        """Whether the tests pass in that time. A test that skips itself does not."""
        environment = {"PATH": "/usr/local/bin:/usr/bin:/bin", "LANG": "C.UTF-8", "HOME": str(self.home),
                       "TMPDIR": str(self.home), "GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1",
                       "GTEST_FILTER": ":".join(tests)}
        process = subprocess.Popen(
            [self.scratch.top / "build/tests" / program], cwd=self.scratch.top, env=environment, text=True,
            errors="replace", preexec_fn=lambda: self.become(seconds), stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        try:
            output, _ = process.communicate(timeout=seconds)
            passed = process.returncode == 0 and "[  SKIPPED ]" not in output
        except subprocess.TimeoutExpired:
            passed = False
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.pid, signal.SIGKILL)  # with whatever the tests left behind
        process.communicate()
        return passed


def tests_of(scratch, program):
    listed = demand(run(scratch.top / "build/tests" / program, "--gtest_list_tests"), f"{program} lists no tests")
    suite = ""
    for line in listed.stdout.splitlines():
        name = line.partition("#")[0].rstrip()
        if name.startswith("  "):
            yield suite + name.strip()
        elif name.endswith("."):
            suite = name


class Reach:
    """Which tests reach a change, with the time that they take."""

    def __init__(self, scratch, workers, programs):
        self.tests = {}
        tests = [(program, test) for program in programs for test in tests_of(scratch, program)]
        for (program, test), seconds, numbers in in_parallel(workers, self.measure, tests):
            for number in numbers:
                self.tests.setdefault(number, []).append((seconds, program, test))

    @staticmethod
    def measure(worker, item):
        worker.reached[:] = bytes(len(worker.reached))
        begin = time.monotonic()
        if not worker.passes(item[0], [item[1]], PATIENCE_SECONDS):
            sys.stderr.write(f"mutants: {item[0]} {item[1]} fails without a change, and is not used\n")
            return item, 0, []
        seconds = time.monotonic() - begin
        return item, seconds, [place.start() for place in re.finditer(rb"[^\0]", worker.reached[:])]

    def of(self, number, programs):
        """The fastest tests as (program, tests, seconds), the programs in their order."""
        left, chosen = MOST_TEST_SECONDS, {}
        for seconds, program, test in sorted(self.tests.get(number, [])):
            if program in programs and seconds <= left:
                left -= seconds
                chosen.setdefault(program, []).append((test, seconds))
        for program in programs:
            if program in chosen:
                yield program, [test for test, _ in chosen[program]], sum(seconds for _, seconds in chosen[program])


def in_parallel(workers, function, items):
    """function(worker, item) for each item, each worker with one at a time."""
    free = queue.Queue()
    for worker in workers:
        free.put(worker)

    def call(item):
        worker = free.get()
        try:
            return function(worker, item)
        finally:
            free.put(worker)

    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        return list(pool.map(call, items))


# --- the run ---------------------------------------------------------------------------------------------------------


def accepted_survivors():
    accepted = set()
    for line in (HERE / "accepted.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            file, code, change, _ = (part.strip() for part in line.split(" | ", 3))
            accepted.add((file, code, change))
    return accepted


def try_source(source, scratch, workers, reach, options, accepted):
    changes, left_out = scratch.changes[source]
    rng = random.Random(f"{options.seed} {source}")
    chosen = [change for change in changes if rng.random() < options.share / 100 and change["number"] not in left_out]
    programs = programs_for(source)

    def survives(worker, change):
        worker.choose(change["number"])
        survived = all(worker.passes(program, tests, 4 + 3 * seconds)
                       for program, tests, seconds in reach.of(change["number"], programs))
        worker.choose(None)
        return survived

    outcomes = in_parallel(workers, survives, chosen)
    result = {"file": str(source), "possible": len(changes), "left_out": len(left_out), "killed": outcomes.count(False),
              "accepted": 0, "survived": []}
    unchanged = scratch.optimised_code(source, -1) if any(outcomes) else None
    for change in (change for change, survived in zip(chosen, outcomes) if survived):
        if (str(source), change["code"], change["kind"]) in accepted:
            result["accepted"] += 1
        elif scratch.optimised_code(source, change["number"]) not in (unchanged, None):
            result["survived"].append({**change, "reached": change["number"] in reach.tests})
    return result


def report(result):
    tried = result["killed"] + len(result["survived"])
    share = f"{100 * result['killed'] / tried:.0f} %" if tried else "-"
    print(f"{result['file']}: {result['killed']} of {tried} noticed ({share}), {result['accepted']} accepted, "
          f"{result['possible']} possible, {result['left_out']} left out", flush=True)
    for survivor in result["survived"]:
        print(f"  {result['file']}:{survivor['line']}:{survivor['column']}: {survivor['kind']}: {survivor['code']}" +
              ("" if survivor["reached"] else " (no test reaches it)"), flush=True)


@contextlib.contextmanager
def scratch_directory(kept):
    """A directory that unprivileged users may enter, removed afterwards unless it is to be kept."""
    if kept:
        kept.mkdir(mode=0o755, exist_ok=True)
        yield kept.resolve()
    else:
        with tempfile.TemporaryDirectory(prefix="krenv-mutants-") as scratch:
            os.chmod(scratch, 0o755)
            yield pathlib.Path(scratch)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("sources", nargs="+", type=pathlib.Path, metavar="SOURCE")
    parser.add_argument("--share", type=float, default=100, help="how many per cent of the changes of each source")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    parser.add_argument("--jobs", type=int, default=os.cpu_count() if os.getuid() == 0 else 1)
    parser.add_argument("--scratch", type=pathlib.Path, help="a directory that keeps the scratch copy for the next run")
    parser.add_argument("--json", type=pathlib.Path, help="write the results there as well")
    options = parser.parse_args()

    results, accepted = [], accepted_survivors()
    with scratch_directory(options.scratch) as directory:
        scratch = Scratch(directory, options.sources)
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            scratch.changes = dict(zip(options.sources, pool.map(scratch.give_switches, options.sources)))
        programs = sorted({program for source in options.sources for program in programs_for(source)})
        scratch.build(programs)
        workers = [Worker(scratch, number) for number in range(options.jobs)]
        reach = Reach(scratch, workers, programs)
        for source in options.sources:
            results.append(try_source(source, scratch, workers, reach, options, accepted))
            report(results[-1])
            if options.json:
                options.json.write_text(json.dumps(results, indent=1) + "\n")

    killed = sum(result["killed"] for result in results)
    survived = sum(len(result["survived"]) for result in results)
    print(f"all: {killed} of {killed + survived} noticed" +
          (f" ({100 * killed / (killed + survived):.1f} %)" if killed + survived else ""))
    return 1 if survived else 0


if __name__ == "__main__":
    sys.exit(main())
