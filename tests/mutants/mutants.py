#!/usr/bin/env python3
"""Measures how strong the tests are: changes one thing at a time in a source and checks whether a test notices.

    mutants.py [--sample N] [--seed S] [--jobs N] [--json FILE] SOURCE...

The sources are changed in a scratch copy of the project, which is built and tested as an unprivileged user, because a
changed file operation may remove files. For each source the result is how many changes were noticed ("killed"), and a list
of those that were not ("survived"). Changes that do not compile, or that give the same object code, are not counted.
accepted.txt lists survivors, each with its reason, that do not change what the program does for its users.
"""
import argparse
import concurrent.futures
import filecmp
import fnmatch
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parent.parent
PATIENCE_SECONDS = 90  # for one test program; one that takes longer has noticed

# --- what is changed -----------------------------------------------------------------------------------------------

SWAPS = {
    "relation": [(" < ", " <= "), (" <= ", " < "), (" > ", " >= "), (" >= ", " > "), (" == ", " != "), (" != ", " == ")],
    "arithmetic": [(" + ", " - "), (" - ", " + "), (" * ", " / "), (" / ", " * "), (" % ", " * "),
                   (" += ", " -= "), (" -= ", " += "), ("++", "--"), ("--", "++")],
    "logic": [(" && ", " || "), (" || ", " && ")],
    "constant": [("true", "false"), ("false", "true")],
}
STATEMENT = re.compile(r"^\s+(?!return\b|break|continue|throw|const\b|auto\b|using\b|static\b|std::\w+<|case\b|default\b|"
                       r"public|private|protected|else\b|for\b|while\b|if\b|switch\b|delete\b)"
                       r"(\*?[\w.:>\[\]-]+(\(.*\)| [+\-|&^*/]?= .*)|(\+\+|--)\w+);$")


def without_comments_and_texts(line):
    """The line with comments, strings and characters blanked, so that columns stay."""
    def blank(match):
        return " " * len(match.group(0))
    line = re.sub(r'"(\\.|[^"\\])*"|\'(\\.|[^\'\\])*\'', blank, line)
    return re.sub(r"//.*", blank, line)


def mutations_of(number, line):
    """All changes of one line, as (line number, kind, old text, new line)."""
    code = without_comments_and_texts(line)
    if code.lstrip().startswith("#") or not code.strip() or "static_assert" in code:
        return
    for kind, swaps in SWAPS.items():
        for old, new in swaps:
            pattern = rf"\b{old}\b" if old.isalpha() else re.escape(old)
            for match in re.finditer(pattern, code):
                at = match.start()
                if kind == "relation" and "template" in code or old in ("++", "--") and code[at - 1:at] == " " and code[at + 2:at + 3] == " ":
                    continue
                yield number, f"{kind} {old.strip()} to {new.strip()}", line[:at] + new + line[at + len(old):]
    for match in re.finditer(r"(?<![\w.'])(\d+)(?![\w.'])", code):
        value = int(match.group(1))
        yield (number, f"constant {value} to {value + 1}",
               line[:match.start()] + str(value + 1) + line[match.end():])
    match = re.match(r"^(\s*(?:\} else )?if \()(.*)(\) (?:\{|.*;))$", code)
    if match and match.group(2).count("(") == match.group(2).count(")") and ";" not in match.group(2):
        start, end = match.span(2)
        yield number, "condition negated", f"{line[:start]}!({line[start:end]}){line[end:]}"
    match = re.match(r"^(\s*(?:.*\) )?return )([^;{].*);$", code)
    if match and match.group(2) != "{}":
        start, end = match.span(2)
        yield number, "answer empty", f"{line[:start]}{{}}{line[end:]}"
    if STATEMENT.match(code):
        yield number, "statement removed", re.match(r"\s*", line).group(0) + ";"


def mutations(source):
    lines = source.read_text().split("\n")
    found, statement_ends = [], True
    for number, line in enumerate(lines):
        for mutation in mutations_of(number, line):
            if mutation[1] != "statement removed" or statement_ends:
                found.append(mutation)
        code = without_comments_and_texts(line).rstrip()
        if code:
            statement_ends = code.endswith((";", "{", "}", ":"))
    return found


# --- which tests look at a source ------------------------------------------------------------------------------------

def programs_for(source):
    """The test programs of programs.txt for a source, in the order in which they are tried."""
    for line in (HERE / "programs.txt").read_text().splitlines():
        pattern, _, programs = line.partition(":")
        if not line.startswith("#") and programs and fnmatch.fnmatch(str(source), pattern.strip()):
            return programs.split()
    sys.exit(f"mutants: programs.txt names no test program for {source}")


# --- a scratch copy of the project -----------------------------------------------------------------------------------

def become_nobody():
    """In a child: no rights, no more memory than a 32-bit process, a group of its own so that all of it can be ended."""
    os.setsid()
    resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if os.getuid() == 0:
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)


class Copy:
    """A copy of the project with a build directory, owned by nobody."""

    def __init__(self, scratch, number):
        self.top = pathlib.Path(scratch) / f"copy{number}"
        files = subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=PROJECT, check=True, text=True,
                               capture_output=True).stdout.splitlines()
        for file in files:
            if (PROJECT / file).is_file():
                (self.top / file).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(PROJECT / file, self.top / file)
        (self.top / "tmp").mkdir()
        if os.getuid() == 0:
            subprocess.run(["chown", "-R", "65534:65534", self.top], check=True)
        configured = self.run("cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_CXX_FLAGS=-O1",
                              "-DCMAKE_TOOLCHAIN_FILE=cmake/linux-i686.cmake", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                              patience=120)
        if configured.returncode != 0:
            sys.exit(f"mutants: the scratch copy cannot be configured:\n{configured.stdout}")

    def run(self, *command, patience=PATIENCE_SECONDS):
        """The ended process, with what it printed; returncode None when it took too long."""
        environment = {**os.environ, "HOME": str(self.top / "tmp"), "TMPDIR": str(self.top / "tmp"),
                       "GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1", "CCACHE_DISABLE": "1"}
        process = subprocess.Popen(command, cwd=self.top, env=environment, preexec_fn=become_nobody, text=True,
                                   errors="replace", stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT)
        try:
            output, _ = process.communicate(timeout=patience)
            code = process.returncode
        except subprocess.TimeoutExpired:
            code, output = None, ""
        try:
            os.killpg(process.pid, signal.SIGKILL)  # with whatever the tests left behind
        except ProcessLookupError:
            pass
        process.communicate()
        return subprocess.CompletedProcess(command, code, output)

    def build(self, target):
        return self.run("ninja", "-C", "build", target, patience=600)

    def object_of(self, source):
        commands = json.loads((self.top / "build/compile_commands.json").read_text())
        for entry in commands:
            output = re.search(r" -o (\S+)", entry["command"]).group(1)
            if entry["file"] == str(self.top / source) and "_test" not in output:
                return output
        sys.exit(f"mutants: no compile command for {source}")

    def notices(self, program):
        """Whether a test program fails, or cannot be built any more, as its tests are listed by running it."""
        if self.build(program).returncode != 0:
            return True
        return self.run(f"build/tests/{program}").returncode != 0

    def judge(self, source, original, mutation, programs):
        """"killed", "survived", or "void" for a change that does not compile or changes nothing."""
        number, _, line = mutation
        lines = original.split("\n")
        lines[number] = line
        (self.top / source).write_text("\n".join(lines))
        target = self.object_of(source)
        unchanged = self.top / "tmp" / "unchanged.o"
        if self.build(target).returncode != 0 or filecmp.cmp(self.top / "build" / target, unchanged, shallow=False):
            return "void"
        return "killed" if any(self.notices(program) for program in programs) else "survived"

    def prepare(self, source, programs):
        """Builds the unchanged source, keeps its object, and demands that its tests pass."""
        target = self.object_of(source)
        if self.build(target).returncode != 0:
            sys.exit(f"mutants: {source} cannot be built unchanged")
        shutil.copy(self.top / "build" / target, self.top / "tmp" / "unchanged.o")
        for program in programs:
            if self.notices(program):
                sys.exit(f"mutants: {program} fails without any change of {source}:\n" + self.build(program).stdout +
                         self.run(f"build/tests/{program}").stdout[-3000:])


# --- the run ---------------------------------------------------------------------------------------------------------

def accepted_survivors():
    accepted = set()
    for line in (HERE / "accepted.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            file, code, change, _ = (part.strip() for part in line.split(" | ", 3))
            accepted.add((file, code, change))
    return accepted


def try_source(source, copies, sample, rng, accepted):
    original = (PROJECT / source).read_text()
    found = mutations(PROJECT / source)
    chosen = sorted(rng.sample(found, sample)) if sample and sample < len(found) else found
    programs = programs_for(source)
    free = queue.Queue()
    for copy in copies:
        copy.prepare(source, programs)
        free.put(copy)

    def judge(mutation):
        copy = free.get()
        try:
            return copy.judge(source, original, mutation, programs)
        finally:
            free.put(copy)

    with concurrent.futures.ThreadPoolExecutor(len(copies)) as pool:
        outcomes = list(pool.map(judge, chosen))
    for copy in copies:
        (copy.top / source).write_text(original)

    lines = original.split("\n")
    result = {"file": str(source), "possible": len(found), "killed": outcomes.count("killed"), "accepted": 0, "survived": []}
    for (number, change, _), outcome in zip(chosen, outcomes):
        if outcome != "survived":
            continue
        if (str(source), lines[number].strip(), change) in accepted:
            result["accepted"] += 1
        else:
            result["survived"].append({"line": number + 1, "code": lines[number].strip(), "change": change})
    return result


def report(result):
    tried = result["killed"] + len(result["survived"])
    share = f"{100 * result['killed'] / tried:.0f} %" if tried else "-"
    print(f"{result['file']}: {result['killed']} of {tried} noticed ({share}), {result['accepted']} accepted, "
          f"{result['possible']} possible", flush=True)
    for survivor in result["survived"]:
        print(f"  {result['file']}:{survivor['line']}: {survivor['change']}: {survivor['code']}", flush=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("sources", nargs="+", type=pathlib.Path, metavar="SOURCE")
    parser.add_argument("--sample", type=int, default=0, help="how many changes of each source, 0 for all")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--json", type=pathlib.Path, help="write the results there as well")
    options = parser.parse_args()

    results, accepted, rng = [], accepted_survivors(), random.Random(options.seed)
    with tempfile.TemporaryDirectory(prefix="krenv-mutants-") as scratch:
        os.chmod(scratch, 0o755)
        copies = [Copy(scratch, number) for number in range(options.jobs)]
        for source in options.sources:
            results.append(try_source(source, copies, options.sample, rng, accepted))
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
