#!/usr/bin/env python3
"""Measures how strong the tests are: changes one thing at a time in a source and checks whether a test notices.

    mutants.py [--sample N | --share PERCENT] [--seed S] [--jobs N] [--scratch DIR] [--json FILE] SOURCE...

The sources are changed in a scratch copy of the project, which is built and tested as an unprivileged user, because a
changed file operation may remove files. For each source the result is how many changes were noticed ("killed"), and a list
of those that were not ("survived"). Changes that do not compile, or that give the same optimised code, are not counted.
accepted.txt lists survivors, each with its reason, that do not change what the program does for its users.

A sample of so many changes of each source shows where tests are missing; the same share of all sources, large and small,
shows how many of all changes the tests notice.

Which changes are chosen depends only on the seed, the source and its text, so that a source can be tried again alone.
"""
import argparse
import concurrent.futures
import contextlib
import filecmp
import fnmatch
import hashlib
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
OPTIMISED = ["-O2"]    # shows which changes change nothing

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
                alone = code[at - 1:at] == " " and code[at + len(old):at + len(old) + 1] == " "
                if (kind == "relation" and "template" in code) or (old in ("++", "--") and alone):
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
    """The test programs of programs.txt for a source, as (name, filter), in the order in which they are tried."""
    for line in (HERE / "programs.txt").read_text().splitlines():
        pattern, _, programs = line.partition(":")
        if not line.startswith("#") and programs and fnmatch.fnmatch(str(source), pattern.strip()):
            return [tuple(program.partition(":")[::2]) for program in programs.split()]
    sys.exit(f"mutants: programs.txt names no test program for {source}")


# --- a scratch copy of the project -----------------------------------------------------------------------------------

def become_nobody():
    """In a child: no rights, no more memory than a 32-bit process, a group of its own so that all of it can be ended."""
    os.setsid()
    for ignored in (signal.SIGINT, signal.SIGQUIT):  # by a shell that starts something in the background
        signal.signal(ignored, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_AS, (6 << 30, 6 << 30))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if os.getuid() == 0:
        os.setgroups([])
        os.setgid(65534)
        os.setuid(65534)


class Copy:
    """A copy of the project with a build directory, owned by nobody.

    What is tested is not optimised, and the headers of the system are compiled once, because compiling takes most of the
    time.
    """

    def __init__(self, scratch, number):
        self.top = scratch / f"copy{number}"
        self.headers = self.top / "build/tmp/headers.h"
        self.passing = set()  # the test programs that have passed without any change
        self.unchanged = None, None  # a source and its optimised code
        self.update()
        if not (self.top / "build/build.ninja").exists():
            self.configure()

    def update(self):
        """Copies what changed since the last run, and removes what is gone."""
        files = set(subprocess.run(["git", "ls-files", "-co", "--exclude-standard"], cwd=PROJECT, check=True, text=True,
                                   capture_output=True).stdout.splitlines())
        for file in files:
            source, copy = PROJECT / file, self.top / file
            if source.is_file() and not (copy.exists() and filecmp.cmp(source, copy, shallow=False)):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copyfile(source, copy)
                shutil.copymode(source, copy)
        for folder, folders, names in os.walk(self.top):
            if pathlib.Path(folder) == self.top:
                folders[:] = set(folders) - {"build", "tmp"}
            for path in (pathlib.Path(folder) / name for name in names):
                if str(path.relative_to(self.top)) not in files:
                    path.unlink()
        (self.top / "build/tmp").mkdir(parents=True, exist_ok=True)
        (self.top / "tmp").mkdir(exist_ok=True)
        if os.getuid() == 0:
            subprocess.run(["chown", "-R", "65534:65534", self.top], check=True)

    def configure(self):
        headers = set()
        for folder in ("src", "facilities", "tools"):
            for file in (self.top / folder).rglob("*.[ch]*"):
                headers.update(re.findall(r"^#include <.*>$", file.read_text(), re.MULTILINE))
        self.headers.write_text("\n".join(sorted(headers)) + "\n")
        configured = self.run("cmake", "-S", ".", "-B", "build", "-G", "Ninja",
                              f"-DCMAKE_CXX_FLAGS=-O0 -include {self.headers}", "-DCMAKE_TOOLCHAIN_FILE=cmake/linux-i686.cmake", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON",
                              "-DCMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST", patience=300)
        if configured.returncode != 0:
            sys.exit(f"mutants: the scratch copy cannot be configured:\n{configured.stdout}")

    def run(self, *command, patience=PATIENCE_SECONDS):
        """The ended process, with what it printed; returncode None when it took too long."""
        environment = {**os.environ, "HOME": str(self.top / "tmp"), "TMPDIR": str(self.top / "tmp"),
                       "PATH": "/usr/local/bin:/usr/bin:/bin",  # others may be those of the user who started this
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

    def build(self, target, patience=600):
        return self.run("ninja", "-C", "build", target, patience=patience)

    def compile_command(self, source):
        """The command that compiles a source for the product, up to the object's name, and that name."""
        for entry in json.loads((self.top / "build/compile_commands.json").read_text()):
            command, _, rest = entry["command"].partition(" -o ")
            target = rest.split()[0]
            if entry["file"] == str(self.top / source) and "_test" not in target:
                return command.split(), target
        sys.exit(f"mutants: no compile command for {source}")

    def precompile(self, source):
        """Compiles the headers with the flags of a source; the compiler then finds them compiled."""
        command, _ = self.compile_command(source)
        flags = [word for word in command if not word.startswith("-I") and word not in ("-include", str(self.headers))]
        for level in ([], OPTIMISED):
            name = hashlib.sha1(" ".join(flags + level).encode()).hexdigest()
            compiled = self.top / "build/tmp/headers.h.gch" / name
            if not compiled.exists():
                self.run("mkdir", "-p", compiled.parent)
                self.run(*flags, *level, "-x", "c++-header", self.headers, "-o", compiled, patience=300)

    def optimised_code(self, source, text):
        (self.top / source).write_text(text)
        command, _ = self.compile_command(source)
        self.run(*command, *OPTIMISED, "-c", source, "-o", "build/tmp/optimised.o", patience=300)
        return (self.top / "build/tmp/optimised.o").read_bytes()

    def test(self, program):
        name, tests = program
        return self.run(f"build/tests/{name}", f"--gtest_filter={tests or '*'}")

    def notices(self, program):
        """Whether a test program fails, or cannot be built because another program of the build fails."""
        return self.build(program[0]).returncode != 0 or self.test(program).returncode != 0

    def judge(self, source, original, mutation, programs):
        """"killed", "survived", or "void" for a change that does not compile or changes nothing."""
        number, _, line = mutation
        lines = original.split("\n")
        lines[number] = line
        changed = "\n".join(lines)
        (self.top / source).write_text(changed)
        if self.notices(programs[0]):
            return "killed" if self.build(self.compile_command(source)[1]).returncode == 0 else "void"
        if self.unchanged[0] != source:
            self.unchanged = source, self.optimised_code(source, original)
        if self.optimised_code(source, changed) == self.unchanged[1]:
            return "void"
        return "killed" if any(self.notices(program) for program in programs[1:]) else "survived"

    def prepare(self, source, programs):
        """Demands that the tests of the unchanged source pass."""
        self.precompile(source)
        for program in sorted(set(programs) - self.passing):
            self.build(program[0], patience=3600)
            if self.notices(program):
                sys.exit(f"mutants: {':'.join(program)} fails without any change of {source}:\n" +
                         (self.build(program[0]).stdout + self.test(program).stdout)[-3000:])
            self.passing.add(program)


# --- the run ---------------------------------------------------------------------------------------------------------

def accepted_survivors():
    accepted = set()
    for line in (HERE / "accepted.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            file, code, change, _ = (part.strip() for part in line.split(" | ", 3))
            accepted.add((file, code, change))
    return accepted


def choose(found, source, options):
    rng = random.Random(f"{options.seed} {source}")
    if options.share is not None:
        return [mutation for mutation in found if rng.random() < options.share / 100]
    return sorted(rng.sample(found, options.sample)) if 0 < options.sample < len(found) else found


def try_source(source, copies, options, accepted):
    original = (PROJECT / source).read_text()
    found = mutations(PROJECT / source)
    chosen = choose(found, source, options)
    programs = programs_for(source)
    free = queue.Queue()
    for copy in copies:
        if chosen:
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
    result = {"file": str(source), "possible": len(found), "killed": outcomes.count("killed"), "accepted": 0,
              "survived": []}
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


@contextlib.contextmanager
def scratch_directory(kept):
    """A directory that nobody may enter, removed afterwards unless it is to be kept."""
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
    number = parser.add_mutually_exclusive_group()
    number.add_argument("--sample", type=int, default=0, help="how many changes of each source, 0 for all")
    number.add_argument("--share", type=float, help="how many per cent of the changes of each source")
    parser.add_argument("--seed", type=int, default=1, help="which ones")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--scratch", type=pathlib.Path, help="a directory that keeps the scratch copies for the next run")
    parser.add_argument("--json", type=pathlib.Path, help="write the results there as well")
    options = parser.parse_args()

    results, accepted = [], accepted_survivors()
    with scratch_directory(options.scratch) as scratch:
        copies = [Copy(scratch, number) for number in range(options.jobs)]
        for source in options.sources:
            results.append(try_source(source, copies, options, accepted))
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
