"""The lists of mutants, mutants/*.txt.

A list has a line for each field, "FIELD: VALUE"; an indented line continues the value of the field before. Lines that
begin with "#" are comments.

  file      the source file of the mutants that follow
  targets   the targets that are built first for the mutants that follow
  tests     the tests that are run first (ctest -R) for the mutants that follow. If these pass, everything is built,
            and all tests run.
  mutant    begins a mutant: its name
  why       locking, lifetime, order, logic or errors; then the consequence, which makes the fault plausible
  old, new  the text to replace and its replacement; a mutant may have several pairs. White space in "old" is
            ignored. The text must occur exactly once in the file.
  first     the tests to run first instead of those of "tests", only for this mutant
  with      tsan: build with ThreadSanitizer and run only the tests that are named
  survives  why no test can kill the mutant; without it, a mutant that survives is an error
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
KINDS = ("locking", "lifetime", "order", "logic", "errors")
MUTANT_FIELDS = ("why", "old", "new", "first", "with", "survives")


class Mistake(Exception):
    """An error in the lists or in the command line."""


class Mutant:
    def __init__(self, name, where, file, targets, tests):
        self.name, self.where, self.file, self.targets, self.tests = name, where, file, targets.split(), tests
        self.why = self.preset = self.survives = None
        self.edits = []

    def complete(self):
        if not (self.file and self.targets and self.tests):
            raise Mistake(f"{self.where}: {self.name} needs 'file', 'targets' and 'tests' before it")
        if self.why is None or self.why.split(":")[0] not in KINDS:
            raise Mistake(f"{self.where}: {self.name} needs 'why: KIND: ...', KIND one of {', '.join(KINDS)}")
        if not self.edits or not all(old and new is not None for old, new in self.edits):
            raise Mistake(f"{self.where}: {self.name} needs 'old' and 'new', in pairs")
        if self.preset not in (None, "tsan"):
            raise Mistake(f"{self.where}: {self.name}: 'with' must be 'tsan' if present")
        self.preset = self.preset or "dev"

    def set(self, field, value):
        if field == "old":
            self.edits.append([value, None])
        elif field == "new" and self.edits and self.edits[-1][1] is None:
            self.edits[-1][1] = value
        elif field == "new":
            raise Mistake(f"{self.where}: {self.name}: 'new' without its 'old'")
        else:
            setattr(self, {"with": "preset", "first": "tests"}.get(field, field), value)

    def apply(self, text):
        """Returns the text of the file with the mutant applied."""
        for old, new in self.edits:
            found = occurrences(text, old)
            if len(found) != 1:
                count = "does not occur" if not found else f"occurs {len(found)} times"
                raise Mistake(f"{self.where}: {self.name}: 'old' {count} in {self.file}: {old}")
            start, end = found[0]
            text = text[:start] + new + text[end:]
        return text


def occurrences(text, old):
    """Returns where `old` is in `text`, ignoring white space."""
    places = [at for at, c in enumerate(text) if not c.isspace()]
    dense = "".join(text[at] for at in places)
    wanted = "".join(old.split())
    return [(places[m.start()], places[m.start() + len(wanted) - 1] + 1)
            for m in re.finditer(f"(?={re.escape(wanted)})", dense)]


def fields_of(path):
    """Yields the fields of a list, as (line number, field, value)."""
    field = None
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if line.startswith("#") or not line.strip():
            continue
        if line[0].isspace():
            if field is None:
                raise Mistake(f"{path.name}:{number}: this line continues no field")
            field[2] += "\n" + line
            continue
        if field:
            yield field
        name, colon, value = line.partition(":")
        if not colon:
            raise Mistake(f"{path.name}:{number}: not 'FIELD: VALUE': {line}")
        field = [number, name, value.strip()]
    if field:
        yield field


def read_list(path):
    mutants = []
    headings = {"file": "", "targets": "", "tests": ""}
    for number, name, value in fields_of(path):
        if name == "mutant":
            mutants.append(Mutant(value, f"{path.name}:{number}", **headings))
        elif name in headings:
            headings[name] = value
        elif name in MUTANT_FIELDS and mutants:
            mutants[-1].set(name, value)
        else:
            raise Mistake(f"{path.name}:{number}: '{name}' is not expected here")
    return mutants


def read_lists():
    mutants = [mutant for path in sorted((ROOT / "mutants").glob("*.txt")) for mutant in read_list(path)]
    names = set()
    for mutant in mutants:
        mutant.complete()
        if mutant.name in names:
            raise Mistake(f"{mutant.where}: the name {mutant.name} is used twice")
        names.add(mutant.name)
    return mutants


def check_tests(mutants):
    """Each alternative of the patterns of tests names a test; the first mistake is raised."""
    names = [f"{suite}.{name}" for path in sorted((ROOT / "tests").rglob("*_test.cpp"))
             for suite, name in re.findall(r"\bTEST(?:_F)?\((\w+),\s*(\w+)\)", path.read_text())]
    for mutant in mutants:
        for alternative in re.split(r"\|(?![^(]*\))", mutant.tests):
            if not any(re.search(alternative, name) for name in names):
                raise Mistake(f"{mutant.where}: {mutant.name}: no test has '{alternative}' in its name")


def check(mutants):
    """Returns whether every mutant applies to the sources and its tests exist."""
    wrong = 0
    try:
        check_tests(mutants)
    except Mistake as mistake:
        print(f"mutants: {mistake}", file=sys.stderr)
        wrong += 1
    for mutant in mutants:
        try:
            path = ROOT / mutant.file
            if not path.is_file():
                raise Mistake(f"{mutant.where}: {mutant.name}: {mutant.file} does not exist")
            text = path.read_text()
            if mutant.apply(text) == text:
                raise Mistake(f"{mutant.where}: {mutant.name} changes nothing")
        except Mistake as mistake:
            print(f"mutants: {mistake}", file=sys.stderr)
            wrong += 1
    return wrong == 0


def choose(mutants, wanted):
    """Returns the mutants with these names, or in files at or below these paths."""
    chosen = []
    for word in wanted:
        path = word.rstrip("/")
        found = [m for m in mutants if m.name == word or m.file == path or m.file.startswith(path + "/")]
        if not found:
            raise Mistake(f"no mutant has the name '{word}' or is in a file or folder of that name")
        chosen += found
    return [m for m in mutants if m in chosen] if wanted else mutants
