#!/usr/bin/env python3
"""Writes the build of the stand-in computational library into OUT:
build.ninja, the export list (exports.def), one counting stub per
computational entry (entries.S) and the entry-name table (entry_table.c).

The reference files come from the catalogue's @SOURCE fields, closed over the
routines they name; the entry names come from the layer's own generator, so
the stand-in exports exactly what the layer calls."""
import argparse
import functools
import re
import sys
from pathlib import Path

here = Path(__file__).resolve().parent
repo = here.parent.parent
sys.path.insert(0, str(repo / "tools" / "codegen"))
import catalogue  # noqa: E402
import interfaces  # noqa: E402

# Reference routines replaced by C (services.c) so that reports reach the
# handler installed through mkl_serv_set_xerbla_interface.
REPLACED = {"XERBLA", "XERBLA_ARRAY"}

# Entries whose target is not the Fortran routine of the same name.
ADAPTED = {n: f"standin_{n.lower()}" for n in
           "ILAENV IPARMQ CHLA_TRANSTYPE CDOTC CDOTU ZDOTC ZDOTU CLADIV ZLADIV".split()}
ALIASED = {"CGEMM3M": "cgemm_", "ZGEMM3M": "zgemm_",
           **{f"{p}LARFP": f"{p.lower()}larfgp_" for p in "SDCZ"}}
# The CSR products: MKL offers them with 32-bit integers.
SPBLAS = {"mkl_spblas_lp64_mkl_dcsrmultcsr": "standin_dcsrmultcsr",
          "mkl_spblas_lp64_mkl_zcsrmultcsr": "standin_zcsrmultcsr"}
SERVICES = """mkl_serv_set_xerbla_interface mkl_serv_set_progress_interface mkl_serv_default_xerbla
    mkl_serv_default_progress mkl_serv_allocate mkl_serv_deallocate mkl_serv_malloc mkl_serv_free
    mkl_serv_lsame mkl_serv_second mkl_serv_dsecnd standin_reset standin_event_count standin_event_get
    standin_entry_calls standin_entry_calls_of standin_refuse_allocation standin_refuse_all_allocations
    standin_live_allocations standin_set_report_callback standin_set_printing""".split()

XBLAS = re.compile(r"^BLAS_[SDCZ]\w*_X$")
UNIT = re.compile(r"^ {6}\s*(?:[A-Z]+(?: PRECISION|\*\d+)? )?(?:SUBROUTINE|FUNCTION)\s+([A-Z0-9_]+)", re.I)
FC = "x86_64-w64-mingw32-gfortran"
CC = "x86_64-w64-mingw32-gcc"


def target(r: catalogue.Routine, aborting: list[str]) -> str:
    if r.name in aborting:
        return f"standin_abort_{r.lower}"
    if r.name in ADAPTED:
        return ADAPTED[r.name]
    if r.name in ALIASED:
        return ALIASED[r.name]
    if r.source.startswith("hand:"):
        return f"standin_{r.lower}"
    return f"{r.lower}_"


@functools.cache
def code_tokens(path: Path) -> set[str]:
    free = path.suffix.lower() == ".f90"
    words = set()
    for line in path.read_text(errors="replace").splitlines():
        if free:
            line = line.split("!", 1)[0]
        elif line[:1] in ("*", "c", "C", "!"):
            continue
        words.update(w.upper() for w in re.findall(r"[A-Za-z_][A-Za-z0-9_]*", line))
    return words


def reference_files(src: Path) -> dict[str, str]:
    """Upper-case name -> defining file (relative to src) of the reference tree,
    by file name; BLAS first, INSTALL last."""
    defined_in = {}
    for d in ("BLAS/SRC", "SRC", "SRC/DEPRECATED", "INSTALL"):
        for f in sorted((src / d).glob("*.[fF]*")):
            defined_in.setdefault(f.stem.upper(), f"{d}/{f.name}")
    return defined_in


def close_over(src: Path, defined_in: dict[str, str], start: set[str]) -> set[str]:
    """start plus every file defining a name that the chosen files' code uses."""
    chosen, pending = set(start), sorted(start)
    while pending:
        for word in code_tokens(src / pending.pop()):
            f = defined_in.get(word)
            if f and f not in chosen:
                chosen.add(f)
                pending.append(f)
    return chosen


def units(path: Path) -> list[tuple[str, int, int]]:
    """(name, first line, last line) of each program unit of a fixed-form file."""
    lines = path.read_text().splitlines()
    found, start, name = [], None, None
    for i, line in enumerate(lines):
        m = UNIT.match(line)
        if m and start is None:
            start, name = i, m.group(1).upper()
        elif start is not None and re.match(r"^\s+END\s*$", line, re.I):
            found.append((name, start, i))
            start = None
    return found


# The reference's Fortran modules, compiled before everything that uses them.
MODULES = ["SRC/la_constants.f90", "SRC/la_xisnan.F90"]


def fortran_builds(sources, obj_dir: str, modules: list[str]) -> tuple[list[str], list[str]]:
    """Ninja builds of reference Fortran files given as (relative name, path)
    pairs: each module after the ones before it, every other file after all
    of them; the machine parameters without optimisation (rule fc0), as the
    reference builds them. Returns the build lines and the objects."""
    def obj(rel: str) -> str:
        return f"{obj_dir}/{rel.replace('/', '_')}.o"
    lines, objects = [], []
    for rel, path in sources:
        rule = "fc0" if "lamch" in rel else "fc"
        before = modules[:modules.index(rel)] if rel in modules else modules
        deps = " || " + " ".join(obj(m) for m in before) if before else ""
        lines.append(f"build {obj(rel)}: {rule} {path}{deps}")
        objects.append(obj(rel))
    return lines, objects


def main() -> None:
    ap = argparse.ArgumentParser()
    ap.add_argument("--lapack", type=Path, required=True)
    ap.add_argument("--out", type=Path, required=True)
    args = ap.parse_args()
    src, out = args.lapack, args.out
    out.mkdir(parents=True, exist_ok=True)
    routines = catalogue.load(repo / "catalogue" / "routines.cat")

    # Which file defines a name: the catalogue first, then the reference tree.
    defined_in = {r.name: r.source for r in routines if not r.source.startswith("hand:")}
    for name, f in reference_files(src).items():
        defined_in.setdefault(name, f)
    for name in REPLACED:
        defined_in.pop(name, None)

    start = {defined_in[r.name] for r in routines if r.name in defined_in}
    start |= {defined_in[t[:-1].upper()] for t in ALIASED.values()}
    chosen = close_over(src, defined_in, start)
    # The extra-precision refinement calls the XBLAS (BLAS_?GEMV_X, ...),
    # which the reference does not include: those files, and every file that
    # reaches one, are left out, and their routines abort.
    needs_xblas = {f for f in chosen if any(XBLAS.match(w) for w in code_tokens(src / f))}
    while True:
        more = {f for f in chosen - needs_xblas
                if any(defined_in.get(w) in needs_xblas for w in code_tokens(src / f))}
        if not more:
            break
        needs_xblas |= more
    chosen -= needs_xblas
    aborting = sorted(r.name for r in routines if r.source in needs_xblas)

    # Files holding more units than the catalogue takes from them (the old
    # machine-parameter files repeat ?LAMCH): only the catalogued units.
    sources = {}
    for rel in sorted(chosen):
        path = src / rel
        if rel.startswith("INSTALL/"):
            parts = units(path)
            keep = [u for u in parts if defined_in.get(u[0]) == rel]
            if len(keep) < len(parts):
                lines = path.read_text().splitlines()
                path = out / "src" / path.name
                path.parent.mkdir(exist_ok=True)
                path.write_text("\n".join("\n".join(lines[a:b + 1]) for _, a, b in keep) + "\n")
        sources[rel] = path

    entries = [(interfaces.library_entry(r), target(r, aborting)) for r in routines]
    entries += sorted(SPBLAS.items())
    names = [e for e, _ in entries]
    assert len(set(names)) == len(names), "an entry name is used twice"

    with open(out / "entries.S", "w") as s:
        s.write("# Counting stubs: bump the counters, then jump on with every register\n"
                "# and the stack as the caller left them.\n"
                "\t.bss\n\t.globl standin_entry_total\n\t.p2align 3\nstandin_entry_total:\n\t.zero 8\n"
                f"\t.globl standin_entry_hits\nstandin_entry_hits:\n\t.zero {8 * len(entries)}\n\t.text\n")
        for i, (entry, tgt) in enumerate(entries):
            s.write(f"\t.globl {entry}\n\t.def {entry}; .scl 2; .type 32; .endef\n\t.p2align 4\n{entry}:\n"
                    f"\tlock incq standin_entry_total(%rip)\n"
                    f"\tlock incq standin_entry_hits+{8 * i}(%rip)\n\tjmp {tgt}\n")
    with open(out / "entry_table.c", "w") as c:
        c.write(f"const int standin_entry_name_count = {len(entries)};\n"
                "const char* const standin_entry_names[] = {\n")
        c.writelines(f'  "{e}",\n' for e in names)
        c.write("};\n\nvoid standin_not_provided(const char* routine, const char* why);\n")
        c.writelines(f'void standin_abort_{n.lower()}(void) {{ standin_not_provided("{n}", '
                     '"it needs the extended-precision XBLAS"); }\n' for n in aborting)
    with open(out / "exports.def", "w") as d:
        d.write("LIBRARY mkl_intel_thread.dll\nEXPORTS\n")
        d.writelines(f"  {n}\n" for n in names + SERVICES)

    modules = MODULES
    assert all(m in sources for m in modules)
    fflags = "-fdefault-integer-8 -frecursive -J mod"
    lines = [
        f"rule fc\n  command = {FC} {fflags} -O2 -c $in -o $out\n  description = FC $in\n",
        # Machine parameters are computed at run time; the reference builds
        # them without optimisation.
        f"rule fc0\n  command = {FC} {fflags} -O0 -c $in -o $out\n  description = FC $in\n",
        f"rule cc\n  command = {CC} -O2 -std=gnu11 -Wall -Wextra -I{here} -c $in -o $out\n"
        "  description = CC $in\n",
        f"rule link\n  command = {FC} -shared -static -o $out @$out.rsp exports.def "
        "-Wl,--out-implib,libmkl_intel_thread_standin.a -Wl,--no-undefined\n"
        "  rspfile = $out.rsp\n  rspfile_content = $in\n  description = LINK $out\n",
    ]
    builds, objects = fortran_builds(sources.items(), "obj", modules)
    lines += builds
    for c in ("services.c", "recording.c", "adapters.c", "mkl_only.c"):
        lines.append(f"build obj/{c}.o: cc {here / c} | {here / 'standin.h'} {here / 'recording.h'}")
        objects.append(f"obj/{c}.o")
    for g in ("entries.S", "entry_table.c"):
        lines.append(f"build obj/{g}.o: cc {g}")
        objects.append(f"obj/{g}.o")
    lines.append(f"build mkl_intel_thread.dll | libmkl_intel_thread_standin.a: link {' '.join(objects)}"
                 " | exports.def")
    (out / "build.ninja").write_text("\n".join(lines) + "\n")
    (out / "mod").mkdir(exist_ok=True)
    (out / "aborting.txt").write_text("".join(f"{n}\n" for n in aborting))
    print(f"generate: {len(sources)} reference files, {len(entries)} entries, {len(aborting)} aborting")


if __name__ == "__main__":
    main()
