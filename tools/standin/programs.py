#!/usr/bin/env python3
"""Build of the LP64 reference test programs for the Windows tests, in two
steps written as ninja files into OUT:

  objects  objects.ninja: the netlib BLAS programs (x?blat1/2/3 for s, d, c,
           z), the LAPACK LIN programs of all four precisions, the
           double-precision EIG program and the matrix generators, default
           (32-bit) integers.
  link     after those are built: the names each program takes from outside
           itself (nm), split into libblas.dll and liblapack.dll name lists,
           import libraries made from them with dlltool, the programs linked
           against those, and reference libblas.dll/liblapack.dll (only the
           files those names need) to run them against."""
import argparse
import re
import subprocess
import sys
from pathlib import Path

here = Path(__file__).resolve().parent
sys.path.insert(0, str(here))
from generate import MODULES, close_over, fortran_builds, reference_files  # noqa: E402

FC = "x86_64-w64-mingw32-gfortran"
FFLAGS = "-O2 -frecursive"
BLAS_PROGRAMS = [f"{p}blat{level}" for level in (1, 2, 3) for p in "sdcz"]
# The LAPACK programs: the linear equation programs of every precision and
# the double-precision eigenvalue program, from their Makefiles' lists.
LAPACK_PROGRAMS = {
    **{f"xlintst{p}": ("LIN", ["ALINTST", f"{p.upper()}LINTST", "SCLNTST" if p in "sc" else "DZLNTST"])
       for p in "sdcz"},
    "xeigtstd": ("EIG", ["DEIGTST", "DZIGTST", "AEIGTST"]),
}
# The run-time parts of the reference that live in INSTALL/.
INSTALL = {"DLAMCH": "dlamch.f", "DLAMC3": "dlamch.f", "SLAMCH": "slamch.f", "SLAMC3": "slamch.f",
           "SECOND": "second_INT_CPU_TIME.f", "DSECND": "dsecnd_INT_CPU_TIME.f", "ILAVER": "ilaver.f"}


def make_variables(path: Path) -> dict[str, list[str]]:
    """VAR = / VAR += lists of a Makefile, taking the else side of ifdef (no XBLAS)."""
    text = path.read_text().replace("\\\n", " ")
    values, skip = {}, []
    for line in text.splitlines():
        words = line.split()
        if not words:
            continue
        if words[0] in ("ifdef", "ifeq", "ifneq", "ifndef"):
            skip.append(words[0] == "ifdef")
        elif words[0] == "else" and skip:
            skip[-1] = not skip[-1]
        elif words[0] == "endif" and skip:
            skip.pop()
        elif not any(skip):
            m = re.match(r"^([A-Z_]+)\s*(\+?=)\s*(.*)$", line)
            if m:
                items = m.group(3).split()
                values[m.group(1)] = (values.get(m.group(1), []) if m.group(2) == "+=" else []) + items
    return values


def objects(src: Path, out: Path) -> None:
    gen = make_variables(src / "TESTING/MATGEN/Makefile")
    lines = [f"rule fc\n  command = {FC} {FFLAGS} -c $in -o $out\n  description = FC $in\n",
             "rule ar\n  command = rm -f $out && x86_64-w64-mingw32-ar rcs $out $in\n"]
    for p in BLAS_PROGRAMS:
        lines.append(f"build obj/blas/{p}.o: fc {src}/BLAS/TESTING/{p}.f")
    built = set()
    for program, (directory, variables) in LAPACK_PROGRAMS.items():
        made = make_variables(src / "TESTING" / directory / "Makefile")
        objs = list(dict.fromkeys(o for v in variables for o in made[v]))
        for o in objs:
            if (directory, o) not in built:
                built.add((directory, o))
                f = src / "TESTING" / directory / f"{o[:-2]}.f"
                lines.append(f"build obj/{directory.lower()}/{o}: fc {f if f.exists() else f.with_suffix('.F')}")
        (out / f"{program}.objects").write_text("\n".join(f"obj/{directory.lower()}/{o}" for o in objs) + "\n")
    gen_objs = list(dict.fromkeys(o for v in ("SCATGEN", "SMATGEN", "CMATGEN", "DZATGEN", "DMATGEN", "ZMATGEN")
                                  for o in gen[v]))
    for o in gen_objs:
        lines.append(f"build obj/matgen/{o}: fc {src}/TESTING/MATGEN/{o[:-2]}.f")
    lines.append("build libtmglib.a: ar " + " ".join(f"obj/matgen/{o}" for o in gen_objs))
    (out / "objects.ninja").write_text("\n".join(lines) + "\n")


def symbols(files: list[Path]) -> tuple[set[str], set[str]]:
    text = subprocess.run(["x86_64-w64-mingw32-nm", *map(str, files)], capture_output=True, text=True,
                          check=True).stdout
    defined, undefined = set(), set()
    for line in text.splitlines():
        parts = line.split()
        if len(parts) == 2 and parts[0] == "U":
            undefined.add(parts[1])
        elif len(parts) == 3 and parts[1] in "TDBCRG":
            defined.add(parts[2])
    return defined, undefined


def link(src: Path, out: Path) -> None:
    blas_names = {f.stem.upper() for f in (src / "BLAS/SRC").glob("*.f*")}
    lapack_files = {n: f for n, f in reference_files(src).items() if not f.startswith("BLAS/")}
    lapack_files.update({n: f"INSTALL/{f}" for n, f in INSTALL.items()})
    programs = {p: [out / f"obj/blas/{p}.o"] for p in BLAS_PROGRAMS}
    for program in LAPACK_PROGRAMS:
        programs[program] = [out / o for o in (out / f"{program}.objects").read_text().split()] + [out / "libtmglib.a"]

    wanted = {"blas": set(), "lapack": set()}
    exported = {}
    for prog, files in programs.items():
        defined, undefined = symbols(files)
        for sym in sorted(undefined - defined):
            if not sym.endswith("_") or sym.startswith("_gfortran"):
                continue
            name = sym[:-1].upper()
            if name in blas_names:
                wanted["blas"].add(sym)
            elif name in lapack_files:
                wanted["lapack"].add(sym)
            else:
                sys.exit(f"{prog}: {sym} is neither BLAS nor LAPACK")
        exported[prog] = "xerbla_" in defined
    for lib, names in wanted.items():
        (out / f"implib/lib{lib}.def").write_text(
            f"LIBRARY lib{lib}.dll\nEXPORTS\n" + "".join(f"  {n}\n" for n in sorted(names)))
    (out / "implib/program.def").write_text("EXPORTS\n  xerbla_\n")

    lapack_sources = close_over(src, lapack_files, {lapack_files[s[:-1].upper()] for s in wanted["lapack"]})
    lapack_sources.discard("SRC/xerbla.f")
    blas_sources = sorted(f"BLAS/SRC/{f.name}" for f in (src / "BLAS/SRC").glob("*.f*") if f.stem != "xerbla")
    # The reference needs its modules first.
    lapack_sources.update(MODULES)
    lines = [
        f"rule fc\n  command = {FC} {FFLAGS} -J mod -c $in -o $out\n  description = FC $in\n",
        f"rule fc0\n  command = {FC} -O0 -J mod -c $in -o $out\n  description = FC $in\n",
        "rule cc\n  command = x86_64-w64-mingw32-gcc -O2 -Wall -c $in -o $out\n",
        "rule implib\n  command = x86_64-w64-mingw32-dlltool -d $in -l $out\n",
        # Every symbol of the reference DLLs is exported; none of the static
        # run-time libraries'.
        f"rule dll\n  command = {FC} -shared -static -o $out $in $libs -Wl,--export-all-symbols "
        "-Wl,--exclude-libs,ALL -Wl,--out-implib,$out.a -Wl,--no-undefined\n  description = LINK $out\n",
        # The EIG program's checks keep large arrays on the stack (-frecursive):
        # the 8 MiB a Linux process has, not Windows' default 2 MiB.
        f"rule exe\n  command = {FC} -static -Wl,--stack,8388608 -o $out $in $defs\n  description = LINK $out\n",
    ]
    for lib in wanted:
        lines.append(f"build implib/lib{lib}.dll.a: implib implib/lib{lib}.def")
    ref_objs = {}
    for lib, sources in (("blas", blas_sources), ("lapack", sorted(lapack_sources))):
        builds, ref_objs[lib] = fortran_builds(((rel, src / rel) for rel in sources), "obj/ref", MODULES)
        lines += builds
    lines.append(f"build obj/ref/program_xerbla.o: cc {here / 'program_xerbla.c'}")
    lines.append("build reference/libblas.dll | reference/libblas.dll.a: dll "
                 + " ".join(ref_objs["blas"]) + " obj/ref/program_xerbla.o")
    lines.append("build reference/liblapack.dll | reference/liblapack.dll.a: dll "
                 + " ".join(ref_objs["lapack"]) + " | reference/libblas.dll.a\n  libs = reference/libblas.dll.a")
    for prog, files in programs.items():
        rel = " ".join(str(f.relative_to(out)) for f in files)
        defs = "implib/program.def" if exported[prog] else ""
        lines.append(f"build bin/{prog}.exe: exe {rel} implib/liblapack.dll.a implib/libblas.dll.a"
                     f" | implib/program.def\n  defs = {defs}")
    (out / "link.ninja").write_text("\n".join(lines) + "\n")
    print(f"programs: {len(wanted['blas'])} BLAS and {len(wanted['lapack'])} LAPACK names imported; "
          f"reference liblapack.dll from {len(lapack_sources)} files")


def main() -> None:
    ap = argparse.ArgumentParser()
    ap.add_argument("step", choices=("objects", "link"))
    ap.add_argument("--lapack", type=Path, required=True)
    ap.add_argument("--out", type=Path, required=True)
    args = ap.parse_args()
    for d in ("implib", "reference", "bin", "mod"):
        (args.out / d).mkdir(parents=True, exist_ok=True)
    (objects if args.step == "objects" else link)(args.lapack, args.out)


if __name__ == "__main__":
    main()
