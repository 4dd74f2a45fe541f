"""Build-time generator of the standard-name companion libraries.

libblas.so.3: one forwarder per reference BLAS routine. liblapack.so.3: one
per name the reference LAPACK library exports; a name in the routine set
forwards to the plain family, any other goes to the reference library
itself, through a jump stub resolved on first call.

Forwarders take the call as a gfortran-compiled program makes it (lower
case with a trailing underscore, character lengths as trailing size_t
arguments, COMPLEX functions returning their value) and hand it to the
plain family's VORN_instable_<lower>."""
import argparse
import re
import subprocess
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402
import dropin_departures  # noqa: E402
from cxx_types import caller_type, param_name  # noqa: E402
from header import HAND_PROTOTYPES  # noqa: E402
from outputs import write_if_changed  # noqa: E402

HEADER = "// Generated at build time from catalogue/routines.cat; do not edit.\n"

# The reference BLAS: every routine the catalogue takes from BLAS/SRC, and
# XERBLA_ARRAY, which the reference BLAS ships as well although the
# catalogue names LAPACK's identical copy.
REFERENCE_BLAS_SOURCE = "BLAS/SRC/"
ALSO_IN_REFERENCE_BLAS = frozenset({"XERBLA_ARRAY"})

RESULT = {"sub": "void", "i": "int", "l": "int", "s": "float", "d": "double",
          "c": "std::complex<float>", "z": "std::complex<double>"}
COMPONENT = {"c": "float", "z": "double"}


def in_reference_blas(r: catalogue.Routine) -> bool:
    return r.source.startswith(REFERENCE_BLAS_SOURCE) or r.name in ALSO_IN_REFERENCE_BLAS


def passes_lengths(r: catalogue.Routine) -> bool:
    """The level 2 BLAS entries read the lengths of their option arguments."""
    return r.group == "B3"


def hand_forwarder(r: catalogue.Routine) -> tuple[str, str]:
    """Entries with hand-written prototypes: the forwarder has the same
    parameters, with the caller's size_t lengths where the entry takes int."""
    result, params = re.fullmatch(r"(\w+) \{n\}\((.*)\)", HAND_PROTOTYPES[r.name]).groups()
    entry = f"VORN_instable_{r.lower}"
    outer, call = [], []
    for p in ([] if params == "void" else params.split(", ")):
        ctype, name = p.rsplit(" ", 1)
        if ctype == "int" and name.endswith("_len"):
            outer.append(f"std::size_t {name}")
            call.append(f"static_cast<int>({name})")
        else:
            outer.append(p)
            call.append(name)
    declaration = f"{result} {entry}({params});"
    invocation = f'{entry}({", ".join(call)})'
    body = f"  {invocation};" if result == "void" else f"  return {invocation};"
    return declaration, (f'VORN_DROPIN_EXPORT {result} {r.lower}_({", ".join(outer) or "void"}) {{\n'
                         f"{body}\n}}")


def forwarder(r: catalogue.Routine) -> tuple[str, str]:
    """(declaration of the plain-family entry, the exported forwarder)."""
    if r.name in HAND_PROTOTYPES:
        return hand_forwarder(r)
    args = [a for a in r.args if a.base not in ("hc", "hz")]
    # Every character argument, scalar or array, brings a hidden length.
    chars = [a for a in args if a.base in ("ch", "str")]
    entry = f"VORN_instable_{r.lower}"
    params = [f"{caller_type(a)} {param_name(a)}" for a in args]
    # Lengths the entry does not take are accepted and left unnamed.
    named = passes_lengths(r)
    params += [f"std::size_t {param_name(a)}_len" if named else f"std::size_t /*{param_name(a)}_len*/"
               for a in chars]
    call = [param_name(a) for a in args]
    entry_params = [caller_type(a) for a in args]
    if named:
        call += [f"static_cast<int>({param_name(a)}_len)" for a in chars]
        entry_params += ["int"] * len(chars)
    complex_result = r.result in COMPONENT
    if complex_result:
        component = COMPONENT[r.result]
        entry_params.insert(0, f"{component}*")
        call.insert(0, f"reinterpret_cast<{component}*>(&result)")
    declaration = (f'{"void" if complex_result else RESULT[r.result]} '
                   f'{entry}({", ".join(entry_params) or "void"});')
    lines = [f'VORN_DROPIN_EXPORT {RESULT[r.result]} {r.lower}_({", ".join(params)}) {{']
    if r.name in dropin_departures.quick_return():
        # The reference's quick return; the computational library would use |INCX|.
        lines.append(f'  if (*{param_name(r.arg("INCX"))} <= 0) return{"" if r.result == "sub" else " 0"};')
    invocation = f'{entry}({", ".join(call)})'
    if complex_result:
        lines += [f"  {RESULT[r.result]} result;", f"  {invocation};", "  return result;"]
    elif r.result == "sub":
        lines.append(f"  {invocation};")
    else:
        lines.append(f"  return {invocation};")
    lines.append("}")
    return declaration, "\n".join(lines)


def forwarders_source(routines: list[catalogue.Routine]) -> str:
    pairs = [forwarder(r) for r in routines]
    out = [HEADER, "#include <complex>", "#include <cstddef>", "",
           '#include "dropin/export.h"', "", 'extern "C" {', "",
           "// The plain family's entries, as the forwarders call them."]
    out += [d for d, _ in pairs]
    out.append("")
    out += [f + "\n" for _, f in pairs]
    out.append('}  // extern "C"')
    return "\n".join(out) + "\n"


def reference_names(listing: str) -> list[str]:
    """Function names from `nm -D --defined-only -P` of the reference
    library."""
    names = []
    for line in listing.splitlines():
        fields = line.split()
        if len(fields) >= 2 and fields[1] in ("T", "W", "i"):
            names.append(fields[0])
    return sorted(set(names))


def stubs_assembly(names: list[str], coff: bool = False) -> str:
    """One exported stub per name: its index in r11, then the shared
    dispatcher, which jumps on to the reference library's routine with every
    argument register and the stack untouched. r11 is scratch in both the
    System V and the Win64 conventions; a DLL exports the stubs through
    linker directives."""
    out = [f"# {HEADER[3:]}", "  .text"]
    for index, name in enumerate(names):
        head = [f"  .globl {name}"] + ([] if coff else [f"  .type {name}, @function"])
        tail = [] if coff else [f"  .size {name}, .-{name}"]
        out += head + ["  .p2align 4", f"{name}:", f"  movl ${index}, %r11d", "  jmp vorn_reference_dispatch"] + tail
    if coff:
        out += ['  .section .drectve,"yni"'] + [f'  .ascii " -export:{name}"' for name in names]
    else:
        out.append('  .section .note.GNU-stack,"",@progbits')
    return "\n".join(out) + "\n"


def stub_table_source(names: list[str]) -> str:
    """The names the stubs stand for and their resolved addresses."""
    listed = "\n".join(f'    "{n}",' for n in names)
    return (f"{HEADER}#include \"dropin/reference_table.h\"\n\n"
            f"const char* const vorn_reference_names[] = {{\n{listed}\n}};\n"
            f"const unsigned vorn_reference_count = {len(names)};\n"
            f"void* vorn_reference_slots[{len(names)}] = {{}};\n")


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--library", choices=("blas", "lapack"), required=True)
    ap.add_argument("--out", required=True, type=Path, help="the forwarders (C++)")
    ap.add_argument("--reference", type=Path, help="lapack: the reference LAPACK library")
    ap.add_argument("--nm", default="nm", help="lapack: the nm that reads it")
    ap.add_argument("--stubs", type=Path, help="lapack: stubs into the reference library (assembly)")
    ap.add_argument("--stub-table", type=Path, help="lapack: the stubs' names and slots (C++)")
    ap.add_argument("--coff", action="store_true", help="stubs for a Windows DLL")
    args = ap.parse_args()
    routines = catalogue.load(args.catalogue)
    if args.library == "blas":
        selected, others = [r for r in routines if in_reference_blas(r)], []
    else:
        if not (args.reference and args.stubs and args.stub_table):
            ap.error("--library lapack needs --reference, --stubs and --stub-table")
        listing = subprocess.run([args.nm, "-D", "--defined-only", "-P", str(args.reference)],
                                 check=True, capture_output=True, text=True).stdout
        names = reference_names(listing)
        # Departures from the reference's documented behaviour go to the
        # reference implementation (dropin_departures.py).
        routed = dropin_departures.routed_to_reference()
        by_name = {f"{r.lower}_": r for r in routines if r.name not in routed}
        selected = [by_name[n] for n in names if n in by_name]
        others = [n for n in names if n not in by_name]
        if len(names) < 1000:
            ap.error(f"only {len(names)} names in {args.reference}")
    for path in (args.out, args.stubs, args.stub_table):
        if path:
            path.parent.mkdir(parents=True, exist_ok=True)
    write_if_changed(args.out, forwarders_source(selected))
    if args.library == "lapack":
        write_if_changed(args.stubs, stubs_assembly(others, args.coff))
        write_if_changed(args.stub_table, stub_table_source(others))
    return 0


if __name__ == "__main__":
    sys.exit(main())
