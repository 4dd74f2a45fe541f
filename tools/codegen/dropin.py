"""Build-time generator of the standard-name companion library
(libblas.so.3): one forwarder per reference BLAS routine, taking the call as
a gfortran-compiled program makes it (lower case with a trailing underscore,
character lengths as trailing size_t arguments, COMPLEX functions returning
their value) and handing it to the plain family's VORN_instable_<lower>."""
import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402
from cxx_types import caller_type, param_name  # noqa: E402

HEADER = "// Generated at build time from catalogue/routines.cat; do not edit.\n"

# The reference BLAS: every routine the catalogue takes from BLAS/SRC, and
# XERBLA_ARRAY, which the reference BLAS ships as well although the
# catalogue names LAPACK's identical copy.
REFERENCE_SOURCE = "BLAS/SRC/"
ALSO_IN_REFERENCE_BLAS = frozenset({"XERBLA_ARRAY"})

# Plain-family entries that read character lengths after the listed
# arguments: the level 2 BLAS and the hand-written services. The others
# take none, and none are passed.
HAND_ENTRIES_WITH_LENGTHS = frozenset({"LSAME", "XERBLA", "XERBLA_ARRAY"})

RESULT = {"sub": "void", "i": "int", "l": "int", "s": "float", "d": "double",
          "c": "std::complex<float>", "z": "std::complex<double>"}
COMPONENT = {"c": "float", "z": "double"}


def selected(r: catalogue.Routine) -> bool:
    return r.source.startswith(REFERENCE_SOURCE) or r.name in ALSO_IN_REFERENCE_BLAS


def passes_lengths(r: catalogue.Routine) -> bool:
    return r.group == "B3" or r.name in HAND_ENTRIES_WITH_LENGTHS


def forwarder(r: catalogue.Routine) -> tuple[str, str]:
    """(declaration of the plain-family entry, the exported forwarder)."""
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
    invocation = f'{entry}({", ".join(call)})'
    if complex_result:
        lines += [f"  {RESULT[r.result]} result;", f"  {invocation};", "  return result;"]
    elif r.result == "sub":
        lines.append(f"  {invocation};")
    else:
        lines.append(f"  return {invocation};")
    lines.append("}")
    return declaration, "\n".join(lines)


def source(routines: list[catalogue.Routine]) -> str:
    pairs = [forwarder(r) for r in routines]
    out = [HEADER, "#include <complex>", "#include <cstddef>", "",
           '#include "dropin/export.h"', "", 'extern "C" {', "",
           "// The plain family's entries, as the forwarders call them."]
    out += [d for d, _ in pairs]
    out.append("")
    out += [f + "\n" for _, f in pairs]
    out.append('}  // extern "C"')
    return "\n".join(out) + "\n"


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--out", required=True, type=Path)
    args = ap.parse_args()
    routines = [r for r in catalogue.load(args.catalogue) if selected(r)]
    text = source(routines)
    args.out.parent.mkdir(parents=True, exist_ok=True)
    if not args.out.exists() or args.out.read_text() != text:
        args.out.write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main())
