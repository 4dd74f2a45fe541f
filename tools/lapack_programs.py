"""Runs the reference LAPACK test programs (Debian's liblapack-test) on
their own inputs, the error-exit tests switched off unless asked for, and
reads the summary line each prints per test path ("DGE", "DGS drivers",
...). Shared by the LAPACK suite (tests/lapack_suite) and
tools/lapack_attribute.py.
"""
from __future__ import annotations

import re
import subprocess
from dataclasses import dataclass, field
from pathlib import Path

TIMEOUT = 1200  # seconds per program run
HANG_LIMIT = 30  # seconds, for a run known not to finish


@dataclass(frozen=True)
class Run:
    program: str
    input: str
    error_exits: bool = False  # run the program's tests of the error exits too

    @property
    def label(self) -> str:
        return f"{self.program} < {self.input}"

    @property
    def output(self) -> str:
        return f"{self.program}_{self.input.removesuffix('.in')}.out"


ERROR_EXIT_LINE = re.compile(r"^(\s*)(T|\.TRUE\.)(\s+Put T to test the error exits)", re.I | re.M)


def without_error_exits(text: str) -> str:
    return ERROR_EXIT_LINE.sub(lambda m: m.group(1) + ("F" if m.group(2) == "T" else ".FALSE.") + m.group(3),
                               text)


# Summary lines, failing and passing:
#   " DGE:    8 out of  3744 tests failed to pass the threshold"
#   " DGS drivers:      4 out of   1560 tests failed to pass the threshold"
#   " All tests for DGE routines passed the threshold (  3744 tests run)"
FAILED = re.compile(r"^\s*(.+?):?\s+(\d+) out of\s+(\d+) tests failed", re.M)
PASSED = re.compile(r"All tests for (.+?)\s+passed the threshold \(\s*(\d+) tests run\)", re.M)
# Lines that mean something went wrong outside the threshold tests.
TROUBLE = re.compile(r"^.*(?:XERBLA was called|Illegal|illegal|returned INFO|INFO\s*=|\*\*\* Error code"
                     r"|MKL ERROR|Sanitizer|runtime error|Segmentation|failed the tests of the error exits).*$", re.M)


def path_key(text: str) -> str:
    return re.sub(r"\s+", " ", text.strip().rstrip(":")).removesuffix(" routines")


@dataclass
class Outcome:
    finished: bool = False
    status: int = 0
    paths: dict[str, list[int]] = field(default_factory=dict)  # key -> [run, failed]
    trouble: list[str] = field(default_factory=list)


def parse(text: str, status: int) -> Outcome:
    o = Outcome(finished="End of tests" in text, status=status)
    for m in FAILED.finditer(text):
        entry = o.paths.setdefault(path_key(m.group(1)), [0, 0])
        entry[0] += int(m.group(3))
        entry[1] += int(m.group(2))
    for m in PASSED.finditer(text):
        o.paths.setdefault(path_key(m.group(1)), [0, 0])[0] += int(m.group(2))
    o.trouble = [line.strip() for line in TROUBLE.findall(text)]
    return o


def run_all(programs: Path, runs: list[Run], env: dict[str, str], work: Path,
            known_hangs: frozenset[str] = frozenset(), log_bindings: bool = False,
            launcher: tuple[str, ...] = (), suffix: str = "") -> dict[str, Outcome]:
    """Runs the programs (each as launcher + program + suffix: wine and .exe
    for the Windows builds); with log_bindings, the loader logs the first
    run's symbol bindings to <work>/bindings.<pid>."""
    work.mkdir(parents=True, exist_ok=True)
    for old in work.glob("bindings.*"):
        old.unlink()
    outcomes = {}
    for index, run in enumerate(runs):
        run_env = env
        if log_bindings and index == 0:
            run_env = {**env, "LD_DEBUG": "bindings", "LD_DEBUG_OUTPUT": str(work / "bindings")}
        source = programs / run.input
        text = source.read_text()
        (work / run.input).write_text(text if run.error_exits else without_error_exits(text))
        try:
            with open(work / run.input) as stdin:
                p = subprocess.run([*launcher, str(programs / (run.program + suffix))], stdin=stdin, cwd=work,
                                   env=run_env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   timeout=HANG_LIMIT if run.label in known_hangs else TIMEOUT)
            text, status = p.stdout.decode(errors="replace"), p.returncode
        except subprocess.TimeoutExpired as e:
            text, status = (e.stdout or b"").decode(errors="replace") + "\n(timed out)\n", -1
        (work / run.output).write_text(text)
        outcomes[run.label] = parse(text, status)
    return outcomes

