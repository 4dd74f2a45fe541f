"""Build-time generator of the typed entry family VORN_stable_<NAME>.

Reads catalogue/typed_entries.txt (the published signatures), checks every
line against the routine's catalogue entry, and for each routine whose plain
names the export table already carries writes
  - a forwarder that hands the arguments to the routine's interface function
    vorn_if_<name> (typed_entries.cpp),
  - its declaration in the public header vorn/vorn_stable.hpp,
  - its export in the version script, which is the plain family's script
    with the C++ names added (exports_full.map)."""
from __future__ import annotations

import argparse
import re
import sys
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402
from cxx_types import CALLER_RESULT, caller_type, param_name  # noqa: E402
import exports  # noqa: E402
from outputs import write_if_changed  # noqa: E402

TYPED_PREFIX = "VORN_stable_"
HEADER = "// Generated at build time from catalogue/typed_entries.txt; do not edit.\n"

# The C++ names exported beside the typed family, as the linker demangles
# them: the allocator pair, the sparse products and the type information of
# the exception chain, which callers need to catch across the library's
# boundary. The classes have no virtual functions, hence no vtables.
# The C++ entries beside the typed family: the allocator pair and the sparse
# products, each with the C-named body it forwards to.
_CSR_PARAMS = ("char* trans, int* request, int* sort, int* m, int* n, int* k, double* a, int* ja, "
               "int* ia, double* b, int* jb, int* ib, double* c, int* jc, int* ic, int* nnzmax, int* info")
FIXED_ENTRIES = [
    ("void*", "VORN_MKL_AlignedAlloc", "int alignment, unsigned long long size", "vorn_if_aligned_alloc"),
    ("void", "VORN_MKL_AlignedFree", "void* p", "vorn_if_aligned_free"),
    ("void", "VORN_instable_dcsrmultcsr", _CSR_PARAMS, "vorn_if_dcsrmultcsr"),
    ("void", "VORN_instable_zcsrmultcsr", _CSR_PARAMS, "vorn_if_zcsrmultcsr"),
]


def _fixed_demangled(params: str) -> str:
    return ", ".join(p.rsplit(" ", 1)[0] for p in params.split(", "))


# The C++ names exported beside the typed family, as the linker demangles
# them, and the type information of the exception chain, which callers need
# to catch across the library's boundary. The classes have no virtual
# functions, hence no vtables.
FIXED_EXPORTS = [f"{name}({_fixed_demangled(params)})" for _, name, params, _ in FIXED_ENTRIES] + [
    f"typeinfo{suffix} for {cls}"
    for cls in ("VORN::Exception", "VORN::SystemError", "VORN::OutOfMemoryError",
                "ARDU::OutOfAlignedMemory")
    for suffix in ("", " name")]

RESULTS = {"void": "sub", "double": "d", "int": "i"}
SCALARS = {"char", "int", "float", "double"}


@dataclass(frozen=True)
class Param:
    """One published parameter type, classified by how it is forwarded."""
    how: str  # value, ref, aligned, pointer
    element: str  # char int float double bool void
    const: bool
    top_const: bool = False  # `double* const`: plain pointer, const itself

    def cxx(self) -> str:
        c = "const " if self.const else ""
        if self.how == "value":
            return self.element
        if self.how == "ref":
            return f"{c}{self.element}&"
        if self.how == "aligned":
            return f"Kessnar::AlignedPtr<{c}{self.element}>"
        return f"{c}{self.element}*" + (" const" if self.top_const else "")

    def demangled(self) -> str:
        """The spelling the linker's demangler gives; top-level const is no
        part of a function's type."""
        c = " const" if self.const else ""
        if self.how == "value":
            return self.element
        if self.how == "ref":
            return f"{self.element}{c}&"
        if self.how == "aligned":
            return f"Kessnar::AlignedPtr<{self.element}{c}>"
        return f"{self.element}{c}*"


_PATTERNS = [
    (re.compile(r"AlignedPtr<(const )?(double|float|int|bool)>"), "aligned"),
    (re.compile(r"(const )?(char|int|float|double)&"), "ref"),
    (re.compile(r"(const )?(double|float|void)\*( const)?"), "pointer"),
    (re.compile(r"()(char|int|double)"), "value"),
]


def parse_param(text: str) -> Param:
    for pattern, how in _PATTERNS:
        m = pattern.fullmatch(text)
        if m:
            top = how == "pointer" and m.group(3) is not None
            return Param(how, m.group(2), m.group(1) is not None, top)
    raise ValueError(f"unknown parameter type {text!r}")


@dataclass(frozen=True)
class Entry:
    name: str
    result: str
    params: tuple[Param, ...]

    @property
    def symbol(self) -> str:
        return TYPED_PREFIX + self.name


def load_entries(path: Path) -> list[Entry]:
    entries = []
    for raw in Path(path).read_text().splitlines():
        line = raw.strip()
        if not line or line.startswith("#"):
            continue
        name, result, params = (f.strip() for f in line.split("|"))
        if result not in RESULTS:
            raise ValueError(f"{name}: unknown result {result!r}")
        entries.append(Entry(name, result, tuple(parse_param(p.strip()) for p in params.split(","))))
    return entries


def check(entry: Entry, r: catalogue.Routine) -> list[str]:
    """Disagreements between a published signature and the catalogue. The
    element types themselves are checked by the compiler in the forwarder."""
    errors = []
    if RESULTS[entry.result] != r.result:
        errors.append(f"result {entry.result} but the routine's is {r.result}")
    if len(entry.params) != len(r.args):
        return errors + [f"{len(entry.params)} parameters, the routine has {len(r.args)}"]
    for i, (p, a) in enumerate(zip(entry.params, r.args), 1):
        complex_scalar = a.base in ("c", "z") and not a.is_array
        if a.base == "fn":
            ok = p.how == "pointer" and p.element == "void"
        elif a.is_array:
            ok = p.how == "aligned" or (p.how == "pointer" and p.top_const)
            ok = ok and (p.element != "bool" or a.base == "l")
        elif complex_scalar:
            ok = p.how == "pointer" and p.const
        else:
            ok = p.how in ("value", "ref") and p.element in SCALARS
        if not ok:
            errors.append(f"parameter {i} ({a.name}, {a.kind}) typed {p.cxx()}")
    return errors


def declaration(entry: Entry, r: catalogue.Routine) -> str:
    params = ", ".join(f"{p.cxx()} {param_name(a)}" for p, a in zip(entry.params, r.args))
    return f"VORN_API {entry.result} {entry.symbol}({params})"


def forwarded(p: Param, a: catalogue.Arg) -> str:
    """What reaches the interface function: the address of the entry's own
    copy or of the caller's referent, the pointer an AlignedPtr holds, a raw
    pointer as it is. Logical arrays typed bool are the routine's 32-bit
    LOGICAL arrays all the same."""
    n = param_name(a)
    if p.how in ("value", "ref"):
        return f"&{n}"
    if p.how == "aligned":
        return f"reinterpret_cast<int*>({n}.ptr)" if p.element == "bool" else f"{n}.ptr"
    return n


def forwarder(entry: Entry, r: catalogue.Routine) -> str:
    args = [forwarded(p, a) for p, a in zip(entry.params, r.args)]
    call = f"vorn_if_{r.lower}({', '.join(args)})"
    body = f"return {call};" if entry.result != "void" else f"{call};"
    return f"{declaration(entry, r)} {{\n  {body}\n}}\n"


def interface_declaration(r: catalogue.Routine) -> str:
    """The interface function as the typed entries call it: the standard
    arguments only. A level-2 interface function also reads a length per
    letter from the positions after them; as through the plain forwarding
    entries, it hands on whatever they hold, and nothing depends on it.
    Passing no lengths makes most forwarders a single jump."""
    params = ", ".join(caller_type(a) for a in r.args)
    return f'VORN_HIDDEN {CALLER_RESULT[r.result]} vorn_if_{r.lower}({params});'


def msvc_source(built: list[Entry], routines: dict[str, catalogue.Routine]) -> str:
    """The Windows DLL's C++ entries, compiled for the MSVC ABI so that they
    carry the decorations a Windows C++ caller's compiler gives them. Header
    free but for the aligned pointer: no MSVC standard library is needed."""
    out = [HEADER, "#define VORN_HIDDEN", '#include "vorn/aligned_ptr.hpp"', "", 'extern "C" {',
           "// MSVC-ABI objects that touch floating point name this marker, which the",
           "// MSVC runtime defines and the mingw runtime does not.",
           "int _fltused = 0;"]
    out += [interface_declaration(routines[e.name]) for e in built]
    out += [f"{result} {body}({params});" for result, _, params, body in FIXED_ENTRIES] + ["}", ""]
    for e in built:
        out.append(forwarder(e, routines[e.name]).replace("VORN_API ", "__declspec(dllexport) ", 1))
    for result, name, params, body in FIXED_ENTRIES:
        args = ", ".join(p.rsplit(" ", 1)[1] for p in params.split(", "))
        ret = "return " if result != "void" else ""
        out.append(f"__declspec(dllexport) {result} {name}({params}) {{\n  {ret}{body}({args});\n}}\n")
    return "\n".join(out)


def demangled(entry: Entry) -> str:
    return f"{entry.symbol}({', '.join(p.demangled() for p in entry.params)})"


def merged_version_script(plain_script: str, cxx_names: list[str]) -> str:
    """The plain family's script with a C++ block in its global list: the
    linker takes a single anonymous version script."""
    marker = "  local: *;"
    if plain_script.count(marker) != 1:
        raise ValueError("the plain version script has no single `local: *;` line")
    block = ["    extern \"C++\" {"] + [f'      "{n}";' for n in cxx_names] + ["    };"]
    return plain_script.replace(marker, "\n".join(block) + "\n" + marker)


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--entries", required=True, type=Path)
    ap.add_argument("--exported", required=True, type=Path,
                    help="the plain names the export table carries (exported_names.txt)")
    ap.add_argument("--plain-map", required=True, type=Path)
    ap.add_argument("--out", required=True, type=Path)
    args = ap.parse_args()

    routines = {r.name: r for r in catalogue.load(args.catalogue)}
    entries = load_entries(args.entries)
    errors = []
    for e in entries:
        if e.name not in routines:
            errors.append(f"{e.name}: not in the catalogue")
        else:
            errors += [f"{e.name}: {msg}" for msg in check(e, routines[e.name])]
    if len({e.name for e in entries}) != len(entries):
        errors.append("an entry is listed twice")
    if errors:
        print("\n".join(errors), file=sys.stderr)
        return 1

    # A routine's interface function exists exactly when its plain names are
    # exported: every spelling of the table ends in vorn_if_<name>.
    plain = set(args.exported.read_text().split())
    built = [e for e in entries if exports.PREFIX + e.name.lower() in plain]

    out = args.out
    (out / "include" / "vorn").mkdir(parents=True, exist_ok=True)
    header = [HEADER,
              "// The typed entries this build of the library provides; include",
              "// vorn/vorn.hpp rather than this file.",
              "#pragma once", '#include "vorn/aligned_ptr.hpp"', ""]
    header += [declaration(e, routines[e.name]) + ";" for e in built]
    header += ["", "// Lists the provided entries as X(NAME, name), for callers that enumerate them.",
               "#define VORN_STABLE_ENTRIES(X) \\"]
    header += [f"  X({e.name}, {e.name.lower()}) \\" for e in built] + [""]
    write_if_changed(out / "include" / "vorn" / "vorn_stable.hpp", "\n".join(header) + "\n")

    source = [HEADER, '#include "frame/lp64.h"', '#include "vorn/vorn_stable.hpp"', "",
              "// Each entry stores nothing and tests nothing: it hands its arguments",
              "// to the interface function the plain names reach, by address.",
              'extern "C" {']
    source += [interface_declaration(routines[e.name]) for e in built] + ["}", ""]
    source += [forwarder(e, routines[e.name]) for e in built]
    write_if_changed(out / "typed_entries.cpp", "\n".join(source))
    write_if_changed(out / "typed_entries_msvc.cpp", msvc_source(built, routines))

    cxx_names = [demangled(e) for e in built] + FIXED_EXPORTS
    write_if_changed(out / "exports_full.map",
                     merged_version_script(args.plain_map.read_text(), cxx_names))
    write_if_changed(out / "typed_exported_names.txt", "\n".join(cxx_names) + "\n")
    print(f"typed entries: {len(built)} of {len(entries)} built")
    return 0


if __name__ == "__main__":
    sys.exit(main())
