#!/usr/bin/env python3
"""Plants each fault of tools/mutate/faults.py in a scratch copy of the tree,
rebuilds it incrementally, runs the suites named for the fault and records
which of them fail. A fault no suite catches is a gap in the tests.

The scratch copy (a detached git worktree, default /tmp/vorn-mutate/src)
and its build directory are made once and reused: each run brings the copy
to this tree's files by content, so only what changed is rebuilt. ccache,
when installed, makes reverting a fault nearly free."""
from __future__ import annotations

import argparse
import importlib.util
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from dataclasses import dataclass, field
from pathlib import Path

HERE = Path(__file__).resolve().parent
# CTest's progress lines: "Start 12: name" and
# "3/40 Test #12: name ......   Passed    0.10 sec" (or ***Failed, ***Timeout,
# ***Exception: SegFault, Not Run...). GoogleTest's typed names hold blanks.
START = re.compile(r"^\s*Start +(\d+): (.+)$")
DONE = re.compile(r"Test +#(\d+): (.+?) \.+\s*(.*?)\s+[0-9.]+ sec$")
ROOT = HERE.parent.parent


def load_faults():
    spec = importlib.util.spec_from_file_location("faults", HERE / "faults.py")
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module.FAULTS


def short_name(test: str) -> str:
    """A CTest name without the parameter dump GoogleTest appends."""
    return test.split("  # GetParam()")[0].strip()


def log(msg: str) -> None:
    print(f"[{time.strftime('%H:%M:%S')}] {msg}", flush=True)


def run(cmd: list[str], cwd: Path | None = None, env: dict | None = None, log_to: Path | None = None) -> int:
    """Runs a command; its output goes to `log_to` (appended) or is discarded."""
    with open(log_to, "a") if log_to else open(os.devnull, "w") as out:
        return subprocess.run(cmd, cwd=cwd, env=env, stdout=out, stderr=subprocess.STDOUT).returncode


def anchor_count(text: str, anchor: str) -> int:
    return text.count(anchor)


def check_anchors(faults, tree: Path) -> list[str]:
    """Every fault's anchor must occur exactly once in its file, so that a
    fault never silently stops applying."""
    errors = []
    ids = set()
    for f in faults:
        if f.id in ids:
            errors.append(f"{f.id}: listed twice")
        ids.add(f.id)
        path = tree / f.file
        if not path.exists():
            errors.append(f"{f.id}: {f.file} does not exist")
            continue
        n = anchor_count(path.read_text(), f.anchor)
        if n != 1:
            errors.append(f"{f.id}: anchor occurs {n} times in {f.file}")
        if f.anchor == f.replacement:
            errors.append(f"{f.id}: the replacement equals the anchor")
        try:
            re.compile(f.suites)
        except re.error as e:
            errors.append(f"{f.id}: bad suite regex: {e}")
        if "(" in f.suites or "\\d" in f.suites:
            # CTest's regular expressions take at most nine groups and no
            # classes like \d: alternatives only.
            errors.append(f"{f.id}: use plain alternatives in the suite regex")
    return errors


def tree_files(tree: Path) -> set[str]:
    out = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=tree,
                         check=True, capture_output=True).stdout.decode()
    return {p for p in out.split("\0") if p and (tree / p).is_file()}


def sync(source: Path, scratch: Path) -> int:
    """Makes the scratch copy hold exactly this tree's files (tracked and
    untracked, not ignored), writing only those whose content differs, so
    that the build redoes only what changed. Returns the number written."""
    if not (scratch / ".git").exists():
        scratch.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["git", "worktree", "add", "--detach", str(scratch), "HEAD"], cwd=source, check=True,
                       stdout=subprocess.DEVNULL)
    wanted = tree_files(source)
    written = 0
    for rel in sorted(wanted):
        src, dst = source / rel, scratch / rel
        data = src.read_bytes()
        if dst.is_file() and dst.read_bytes() == data:
            continue
        dst.parent.mkdir(parents=True, exist_ok=True)
        dst.write_bytes(data)
        shutil.copymode(src, dst)
        written += 1
    for rel in tree_files(scratch) - wanted:
        (scratch / rel).unlink()
        written += 1
    return written


@dataclass
class Outcome:
    fault: object
    status: str  # caught, NOT CAUGHT, build error, error
    failed: list[str] = field(default_factory=list)
    seconds: float = 0.0
    note: str = ""


class Scratch:
    def __init__(self, args):
        self.src = Path(args.scratch) / "src"
        self.build = Path(args.scratch) / "build"
        self.windows = Path(args.scratch) / "windows"
        self.logs = Path(args.scratch) / "logs"
        self.jobs = args.jobs
        self.timeout = args.timeout
        self.fault_timeout = args.fault_timeout
        self.with_windows = args.windows
        self.logs.mkdir(parents=True, exist_ok=True)

    def configure(self) -> None:
        cache = self.build / "CMakeCache.txt"
        launcher = []
        if shutil.which("ccache"):
            launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
        if cache.exists() and (not launcher or "COMPILER_LAUNCHER:" in cache.read_text()):
            return
        log(f"configuring {self.build}")
        rc = run(["cmake", "-S", str(self.src), "-B", str(self.build), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                  "-DVORN_TESTS=ON", *launcher], log_to=self.logs / "configure.log")
        if rc != 0:
            sys.exit(f"configure failed: see {self.logs / 'configure.log'}")

    def build_tree(self, name: str, windows: bool) -> bool:
        log_file = self.logs / f"{name}.build.log"
        log_file.unlink(missing_ok=True)
        if run(["cmake", "--build", str(self.build), f"-j{self.jobs}"], log_to=log_file) != 0:
            return False
        if windows and self.with_windows:
            env = dict(os.environ, VORN_BUILD_DIR=str(self.windows.parent))
            rc = run(["bash", str(self.src / "tools/build_windows.sh"), "-DVORN_TESTS=ON",
                      f"-DVORN_ELF_LIBRARY={self.build / 'libvorn.so'}"], env=env, log_to=log_file)
            if rc != 0:
                return False
        return True

    def failing(self, build: Path, regex: str, name: str, cap: int) -> tuple[list[str], str]:
        """Runs the CTests matching `regex`; the names of those that failed
        (timeouts included), and an error text when nothing ran. A test's
        own TIMEOUT property outranks --timeout, and a fault can make a
        program hang for the full 40 minutes of the LAPACK suite's, so the
        whole run is capped at --fault-timeout: the tests still running
        then count as failed."""
        log_file = self.logs / f"{name}.ctest.log"
        log_file.unlink(missing_ok=True)
        cmd = ["ctest", "--test-dir", str(build), "-j", str(self.jobs), "-R", regex, "--timeout",
               str(self.timeout), "--no-tests=error"]
        with open(log_file, "w") as out:
            proc = subprocess.Popen(cmd, stdout=out, stderr=subprocess.STDOUT, start_new_session=True)
            try:
                rc = proc.wait(timeout=cap)
            except subprocess.TimeoutExpired:
                os.killpg(proc.pid, signal.SIGKILL)
                proc.wait()
                rc = None
        started, failed = {}, []
        for line in log_file.read_text(errors="replace").splitlines():
            if m := START.search(line):
                started[m.group(1)] = short_name(m.group(2))
            elif m := DONE.search(line):
                started.pop(m.group(1), None)
                if m.group(3).strip() != "Passed":
                    failed.append(short_name(m.group(2)))
        if rc is None:
            failed += [f"{t} (still running after {cap} s)" for t in started.values()]
        elif rc != 0 and not failed:
            return [], f"ctest failed without a failing test (see {log_file})"
        return failed, ""

    def tests(self, regex: str, name: str, windows: bool, cap: int | None = None,
              elf: bool = True) -> tuple[list[str], str]:
        cap = cap or self.fault_timeout
        # A Windows-only fault's suites exist only in the Windows tree.
        failed, error = self.failing(self.build, regex, name, cap) if elf else ([], "")
        if windows and self.with_windows and not error:
            win_failed, error = self.failing(self.windows, regex, name + ".windows", cap)
            failed += win_failed
        return failed, error


def plant(path: Path, anchor: str, replacement: str) -> str:
    text = path.read_text()
    n = text.count(anchor)
    if n != 1:
        raise RuntimeError(f"anchor occurs {n} times in {path}")
    path.write_text(text.replace(anchor, replacement, 1))
    return text


def test_of(name: str) -> str:
    """A CTest name without the instance of a parametrised or typed test,
    so that a table row names each GoogleTest test once."""
    name = name.split(" (still running")[0]
    if "<" in name:
        name = name.split("<")[0]
    head, dot, tail = name.partition(".")
    return head + dot + tail.split("/")[0] if dot else name


def caught_cell(failed: list[str]) -> str:
    counts: dict[str, int] = {}
    for t in failed:
        counts[test_of(t)] = counts.get(test_of(t), 0) + 1
    return ", ".join(f"`{t}`" + (f" ({n})" if n > 1 else "") for t, n in sorted(counts.items()))


def markdown(outcomes: list[Outcome], baseline_seconds: float, jobs: int) -> str:
    caught = sum(o.status == "caught" for o in outcomes)
    fault_seconds = sum(o.seconds for o in outcomes)
    lines = ["# Faults planted by tools/mutate/run.py and the tests that caught them", "",
             f"{caught} of {len(outcomes)} faults caught. Each fault: plant, rebuild, run the suites named for it "
             f"in `faults.py`, revert; {fault_seconds / 60:.0f} min for the faults together"
             + (f" after a {baseline_seconds / 60:.0f} min baseline" if baseline_seconds else "")
             + f", on {jobs} jobs. A test named with a count failed in that many of its instances "
             "(parameters, precisions); one still running at the cap on a fault's run counts as failed. "
             "Regenerate with `python3 tools/mutate/run.py --out tools/mutate/RESULTS.md` "
             "(the TSV beside it lists every failing CTest).", "",
             "| fault | layer | description | tests that caught it |", "|---|---|---|---|"]
    for o in outcomes:
        if o.status == "caught":
            cell = caught_cell(o.failed)
        else:
            cell = f"**{o.status}**" + (f" ({o.note})" if o.note else "")
        lines.append(f"| `{o.fault.id}` | {o.fault.layer} | {o.fault.description} | {cell} |")
    return "\n".join(lines) + "\n"


def tsv(outcomes: list[Outcome]) -> str:
    rows = ["id\tlayer\tstatus\tseconds\tfailed (;-separated)"]
    rows += [f"{o.fault.id}\t{o.fault.layer}\t{o.status}\t{o.seconds:.0f}\t{';'.join(sorted(o.failed))}"
             for o in outcomes]
    return "\n".join(rows) + "\n"


def read_tsv(path: Path, faults) -> dict[str, Outcome]:
    """Outcomes of an earlier run (its TSV), by fault id, for --resume."""
    by_id = {f.id: f for f in faults}
    out = {}
    for row in path.read_text().splitlines()[1:]:
        fid, _, status, seconds, failed = (row.split("\t") + [""])[:5]
        if fid in by_id and status in ("caught", "NOT CAUGHT"):
            out[fid] = Outcome(by_id[fid], status, [t for t in failed.split(";") if t], float(seconds))
    return out


def main() -> int:
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--only", help="comma-separated fault ids")
    ap.add_argument("--list", action="store_true", help="list the faults and check their anchors")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--timeout", type=int, default=120,
                    help="per CTest without a TIMEOUT of its own, seconds")
    ap.add_argument("--fault-timeout", type=int, default=240,
                    help="cap on one fault's whole CTest run, seconds (also the baseline's, doubled)")
    ap.add_argument("--out", type=Path, help="Markdown table (a .tsv beside it)")
    ap.add_argument("--windows", action="store_true",
                    help="also build vorn.dll and run the Windows suites under wine (minutes per fault)")
    ap.add_argument("--scratch", default="/tmp/vorn-mutate", help="the scratch copy and its build trees")
    ap.add_argument("--skip-baseline", action="store_true", help="trust the last baseline run")
    ap.add_argument("--resume", type=Path, help="TSV of an interrupted run: its outcomes are kept, not rerun")
    ap.add_argument("--render", type=Path, help="write --out from this TSV of a finished run; run nothing")
    ap.add_argument("--baseline-seconds", type=float, default=0.0, help="with --render: the baseline's time")
    args = ap.parse_args()

    faults = load_faults()
    if args.only:
        wanted = args.only.split(",")
        unknown = set(wanted) - {f.id for f in faults}
        if unknown:
            sys.exit(f"unknown fault ids: {', '.join(sorted(unknown))}")
        faults = [f for f in faults if f.id in wanted]
    errors = check_anchors(faults, ROOT)
    if args.list:
        for f in faults:
            print(f"{f.id:32} {f.layer:9} {f.description}")
        print(f"{len(faults)} faults over {len({f.layer for f in faults})} layers")
    if errors:
        print("\n".join(["fault list errors:"] + errors), file=sys.stderr)
        return 2
    if args.list:
        return 0
    if args.render:
        if not args.out:
            sys.exit("--render needs --out")
        earlier = read_tsv(args.render, faults)
        missing = [f.id for f in faults if f.id not in earlier]
        if missing:
            print("not in the TSV: " + ", ".join(missing), file=sys.stderr)
        text = markdown([earlier[f.id] for f in faults if f.id in earlier], args.baseline_seconds, args.jobs)
        if missing:
            text += "\nNot in this run: " + ", ".join(f"`{m}`" for m in missing) + " (the Windows faults need " \
                    "`--windows`, which builds and tests vorn.dll under wine for each).\n"
        args.out.write_text(text)
        return 0
    if not args.windows:
        skipped = [f.id for f in faults if f.windows_only]
        faults = [f for f in faults if not f.windows_only]
        if skipped:
            log(f"left out without --windows: {', '.join(skipped)}")

    start = time.monotonic()
    scratch = Scratch(args)
    log(f"syncing {scratch.src}: {sync(ROOT, scratch.src)} files written")
    scratch.configure()
    any_windows = any(f.windows_only for f in faults)
    if not scratch.build_tree("baseline", any_windows):
        sys.exit(f"the unchanged tree does not build: see {scratch.logs / 'baseline.build.log'}")
    union = "|".join(f.suites for f in faults)
    baseline_seconds = 0.0
    if not args.skip_baseline:
        log("baseline: every selected suite on the unchanged tree")
        failed, error = scratch.tests(union, "baseline", any_windows, 2 * args.fault_timeout)
        baseline_seconds = time.monotonic() - start
        if failed or error:
            print(error or "baseline failures (fix or deselect before measuring):\n  " + "\n  ".join(failed),
                  file=sys.stderr)
            return 1
        log(f"baseline passes ({baseline_seconds:.0f} s)")

    earlier = read_tsv(args.resume, faults) if args.resume else {}
    progress = args.out.with_suffix(".tsv") if args.out else scratch.logs / "progress.tsv"
    outcomes = []
    for f in faults:
        if f.id in earlier:
            outcomes.append(earlier[f.id])
            log(f"{f.id}: {earlier[f.id].status} in the earlier run")
            continue
        t0 = time.monotonic()
        path = scratch.src / f.file
        original = plant(path, f.anchor, f.replacement)
        try:
            if not scratch.build_tree(f.id, f.windows_only):
                o = Outcome(f, "build error", note=f"see {scratch.logs / (f.id + '.build.log')}")
            else:
                failed, error = scratch.tests(f.suites, f.id, f.windows_only, elf=not f.windows_only)
                o = Outcome(f, "error" if error else "caught" if failed else "NOT CAUGHT", failed, note=error)
        finally:
            path.write_text(original)
        o.seconds = time.monotonic() - t0
        outcomes.append(o)
        progress.write_text(tsv(outcomes))
        if o.status == "caught":
            log(f"{f.id}: caught by {len(o.failed)} ({', '.join(sorted(o.failed)[:4])}{' ...' if len(o.failed) > 4 else ''})"
                f" [{o.seconds:.0f} s]")
        elif o.status == "NOT CAUGHT":
            log(f"{f.id}: *** NOT CAUGHT *** [{o.seconds:.0f} s]")
        else:
            log(f"{f.id}: {o.status.upper()} {o.note} [{o.seconds:.0f} s]")
    # Leave the scratch tree built as it is, so the next run starts warm.
    scratch.build_tree("restore", any_windows)
    total = time.monotonic() - start

    uncaught = [o.fault.id for o in outcomes if o.status == "NOT CAUGHT"]
    broken = [o.fault.id for o in outcomes if o.status in ("build error", "error")]
    print(f"\n{sum(o.status == 'caught' for o in outcomes)} of {len(outcomes)} caught in {total / 60:.1f} min")
    if uncaught:
        print("NOT CAUGHT: " + ", ".join(uncaught))
    if broken:
        print("ERRORS IN THE LIST (fix these faults): " + ", ".join(broken))
    if args.out:
        args.out.write_text(markdown(outcomes, baseline_seconds, args.jobs))
        args.out.with_suffix(".tsv").write_text(tsv(outcomes))
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
