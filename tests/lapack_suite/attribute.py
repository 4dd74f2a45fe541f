#!/usr/bin/env python3
"""Finds which routines of the computational library make a LAPACK test path
fail through the layer where the reference passes it.

It builds a small preloaded library that takes chosen standard names away
from the companion libraries and sends them to the reference library
instead (the same jump stubs the companion liblapack.so.3 uses for the
routines outside the set), and narrows the chosen set down to a minimal one
that brings the path's failure count to what routing every candidate gives.

  attribute.py --from lapack --program xeigtstd --input dgd.in \\
               --path "DGS drivers" --dropin-dir build/release/dropin/lib

A diagnosis tool for a developer, not a test.
"""
from __future__ import annotations

import argparse
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
ROOT = HERE.parents[1]
sys.path.insert(0, str(ROOT / "tools" / "codegen"))

import catalogue  # noqa: E402
import dropin  # noqa: E402
from lapack_suite import PROGRAMS, without_error_exits  # noqa: E402

REFERENCE = {"blas": "/usr/lib/x86_64-linux-gnu/blas/libblas.so.3",
             "lapack": "/usr/lib/x86_64-linux-gnu/lapack/liblapack.so.3"}
# The programs' own XERBLA and ILAENV stay theirs; LSAME is not numerical.
NEVER_ROUTED = {"xerbla_", "xerbla_array_", "lsame_", "ilaenv_"}


def candidates(which: str) -> list[str]:
    listing = subprocess.run(["nm", "-D", "--defined-only", "-P", REFERENCE[which]],
                             check=True, capture_output=True, text=True).stdout
    in_set = {f"{r.lower}_" for r in catalogue.load(ROOT / "catalogue" / "routines.cat")}
    return [n for n in dropin.reference_names(listing) if n in in_set and n not in NEVER_ROUTED]


class Experiment:
    def __init__(self, args: argparse.Namespace, scratch: Path):
        self.args, self.scratch = args, scratch
        self.input = scratch / args.input
        self.input.write_text(without_error_exits((PROGRAMS / args.input).read_text()))
        self.shim = scratch / "route.so"

    def build(self, names: list[str]) -> None:
        (self.scratch / "stubs.S").write_text(dropin.stubs_assembly(names))
        (self.scratch / "table.cpp").write_text(dropin.stub_table_source(names))
        subprocess.run([os.environ.get("CXX", "g++"), "-shared", "-fPIC", "-O1", "-o", str(self.shim),
                        str(self.scratch / "stubs.S"), str(self.scratch / "table.cpp"),
                        str(ROOT / "dropin" / "reference_dispatch.S"), str(ROOT / "dropin" / "reference_resolve.cpp"),
                        f'-DVORN_REFERENCE_LAPACK="{REFERENCE[self.args.source]}"', f"-I{ROOT}", "-ldl"],
                       check=True)

    def failures(self, names: list[str]) -> int:
        self.build(names)
        preload = [str(self.shim)] + [str(Path(p).resolve()) for p in self.args.preload.split(":") if p]
        env = {**os.environ, "LD_LIBRARY_PATH": str(Path(self.args.dropin_dir).resolve()),
               "LD_PRELOAD": ":".join(preload), "MKL_NUM_THREADS": "1"}
        with open(self.input) as stdin:
            out = subprocess.run([str(PROGRAMS / self.args.program)], stdin=stdin, env=env, cwd=self.scratch,
                                 capture_output=True, text=True, timeout=600).stdout
        return sum(int(n) for n in re.findall(re.escape(self.args.path) + r":\s+(\d+) out of", out))


def minimal_set(names: list[str], failures) -> list[str]:
    """Drops chunks of the set, halving the chunk size, while the failure
    count stays at its fully routed value."""
    target, kept, chunks = failures(names), list(names), 2
    while len(kept) > 1:
        size = max(1, len(kept) // chunks)
        for start in range(0, len(kept), size):
            trial = kept[:start] + kept[start + size:]
            if trial and failures(trial) == target:
                kept = trial
                break
        else:
            if size == 1:
                break
            chunks *= 2
    return kept


def main() -> int:
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--from", dest="source", choices=sorted(REFERENCE), required=True,
                    help="which library's names to route to the reference")
    ap.add_argument("--program", required=True)
    ap.add_argument("--input", required=True)
    ap.add_argument("--path", required=True, help='summary path, e.g. "DGV drivers"')
    ap.add_argument("--dropin-dir", required=True)
    ap.add_argument("--preload", default="")
    args = ap.parse_args()
    with tempfile.TemporaryDirectory() as scratch:
        experiment = Experiment(args, Path(scratch))
        names = candidates(args.source)
        none, every = experiment.failures([]), experiment.failures(names)
        print(f"{args.path}: {none} failures through the layer, {every} with all {len(names)} "
              f"{args.source} routines from the reference")
        if none == every:
            print("the reference's routines of this library make no difference")
            return 0
        kept = minimal_set(names, experiment.failures)
        print(f"{every} failures already with only these from the reference: {' '.join(kept)}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
