#!/usr/bin/env python3
"""A developer's diagnosis, not a test: finds which routines of the
computational library make a LAPACK test path fail through the layer where
the reference passes it. The known differences of tests/lapack_suite were
traced with it.

  lapack_attribute.py --from lapack --program xeigtstd --input dgd.in
                      --path "DGS drivers" --build-dir DIR [--preload LIBS]

DIR is a configured and built tree: its companions are run, and its CMake
cache names the reference libraries and, beside the reference LAPACK, the
test programs.

A small preloaded library takes chosen standard names away from the
companions and sends them to the reference library (the jump stubs the
companion liblapack.so.3 uses for the routines outside the set); the chosen
set is narrowed to a minimal one that brings the path's failure count to
what routing every candidate gives.
"""
from __future__ import annotations

import argparse
import os
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path[:0] = [str(ROOT / "tools" / "codegen"), str(ROOT / "tools")]

import catalogue  # noqa: E402
import dropin  # noqa: E402
from lapack_programs import Run, path_key, run_all  # noqa: E402

REFERENCE = {"blas": "VORN_REFERENCE_BLAS", "lapack": "VORN_REFERENCE_LAPACK_NAMES"}  # cache variables
# Never routed: the programs' own XERBLA and ILAENV stay theirs; LSAME is
# not numerical.
NEVER_ROUTED = {"xerbla_", "xerbla_array_", "lsame_", "ilaenv_"}


def minimal_set(names: list[str], target: int, failures) -> list[str]:
    """Drops chunks of the set, halving the chunk size, while the failure
    count stays at its fully routed value."""
    kept, chunks = list(names), 2
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


def cached(build: Path, variable: str) -> Path:
    for line in (build / "CMakeCache.txt").read_text().splitlines():
        if line.startswith(f"{variable}:"):
            return Path(line.split("=", 1)[1])
    sys.exit(f"{variable} is not set in {build}/CMakeCache.txt")


def attribute(args: argparse.Namespace) -> int:
    library = cached(args.build_dir, REFERENCE[args.source])
    programs = cached(args.build_dir, REFERENCE["lapack"]).parent
    dropin_dir = (args.build_dir / "dropin" / "lib").resolve()
    listing = subprocess.run(["nm", "-D", "--defined-only", "-P", str(library)],
                             check=True, capture_output=True, text=True).stdout
    in_set = {f"{r.lower}_" for r in catalogue.load(ROOT / "catalogue" / "routines.cat")}
    names = [n for n in dropin.reference_names(listing) if n in in_set and n not in NEVER_ROUTED]
    run = Run(args.program, args.input)
    with tempfile.TemporaryDirectory() as directory:
        scratch = Path(directory)

        def failures(routed: list[str]) -> int:
            (scratch / "stubs.S").write_text(dropin.stubs_assembly(routed))
            (scratch / "table.cpp").write_text(dropin.stub_table_source(routed))
            subprocess.run([os.environ.get("CXX", "g++"), "-shared", "-fPIC", "-O1", "-o", str(scratch / "route.so"),
                            str(scratch / "stubs.S"), str(scratch / "table.cpp"),
                            str(ROOT / "dropin" / "reference_dispatch.S"),
                            str(ROOT / "dropin" / "reference_resolve.cpp"), str(ROOT / "dropin" / "relocation.cpp"),
                            f'-DVORN_REFERENCE_LAPACK="{library}"', f"-I{ROOT}", "-ldl"], check=True)
            # A sanitizer runtime among the preloads has to come first.
            preload = [str(Path(p).resolve()) for p in args.preload.split(":") if p] + [str(scratch / "route.so")]
            env = {**os.environ, "LD_LIBRARY_PATH": str(dropin_dir),
                   "LD_PRELOAD": ":".join(preload), "MKL_NUM_THREADS": "1"}
            outcome = run_all(programs, [run], env, scratch / "run")[run.label]
            return outcome.paths.get(path_key(args.path), [0, 0])[1]

        none, every = failures([]), failures(names)
        print(f"{args.path}: {none} failures through the layer, {every} with all {len(names)} "
              f"{args.source} routines from the reference")
        if none == every:
            print("the reference's routines of this library make no difference")
            return 0
        kept = minimal_set(names, every, failures)
    print(f"{every} failures already with only these from the reference: {' '.join(kept)}")
    return 0


def main() -> int:
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--from", dest="source", choices=sorted(REFERENCE), required=True,
                    help="which library's names to route to the reference")
    ap.add_argument("--program", required=True)
    ap.add_argument("--input", required=True)
    ap.add_argument("--path", required=True, help='summary path, e.g. "DGS drivers"')
    ap.add_argument("--build-dir", required=True, type=Path)
    ap.add_argument("--preload", default="", help="colon-separated libraries preloaded into the layer's runs")
    return attribute(ap.parse_args())


if __name__ == "__main__":
    sys.exit(main())
