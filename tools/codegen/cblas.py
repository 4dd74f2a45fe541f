"""Build-time generator of the CBLAS entries of libblas.so.3.

One `cblas_<name>` per reference BLAS routine (all of BLAS/SRC but LSAME
and XERBLA; cblas_xerbla and cblas_scabs1 are hand-written in
dropin/cblas_support.cpp), and the Fortran-callable `<name>sub_` helpers the
reference library exports for its functions. Each reaches the plain
family's VORN_instable_<name>.

CBLAS keeps the Fortran argument order of the level 2 and 3 routines and
puts the layout first, so CBLAS position = Fortran position + 1 in
column-major order. Row-major order is the transposed problem: the table
ROW below says, per routine family, which arguments trade places, which
options read the other way, and which operands are conjugated; the CBLAS
position of each Fortran argument follows from where it came from."""
import argparse
import re
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402
import dropin  # noqa: E402
from cxx_types import caller_type, param_name  # noqa: E402
from outputs import write_if_changed  # noqa: E402

HEADER = "// Generated at build time from catalogue/routines.cat; do not edit.\n"
HAND = frozenset({"LSAME", "XERBLA"})
REAL = {"s": "float", "d": "double", "c": "float", "z": "double"}

# Row-major order, per family (the routine's name without its precision):
#   swap     Fortran arguments that take each other's CBLAS argument
#   flip     options read the other way (UPLO, SIDE)
#   trans    how TRANS reads: keep (as written), sym/herm (rank-k updates:
#            the other side), vector (matrix-vector: the transpose; a
#            conjugate transpose becomes the plain product of conjugates)
#   when     conjugation applies: "always", or "conjugate" (ConjTrans only)
#   copy     input vectors passed as conjugated copies
#   inplace  in/out vectors conjugated for the call and back
#   scalars  scalars conjugated
#   entry    another Fortran routine does the work
VECTOR_CONJ = dict(when="conjugate", copy=["X"], inplace=["Y"], scalars=["ALPHA", "BETA"])
HERM_VECTOR = dict(flip=["UPLO"], when="always", copy=["X"], inplace=["Y"], scalars=["ALPHA", "BETA"])
TRIANGULAR = dict(flip=["UPLO"], trans="vector", when="conjugate", inplace=["X"])
GER = dict(swap=[("M", "N"), ("X", "Y"), ("INCX", "INCY")])
ROW = {
    "GEMM": dict(swap=[("TRANSA", "TRANSB"), ("M", "N"), ("A", "B"), ("LDA", "LDB")]),
    "SYMM": dict(swap=[("M", "N")], flip=["SIDE", "UPLO"]),
    "HEMM": dict(swap=[("M", "N")], flip=["SIDE", "UPLO"]),
    "SYRK": dict(flip=["UPLO"], trans="sym"),
    "SYR2K": dict(flip=["UPLO"], trans="sym"),
    "HERK": dict(flip=["UPLO"], trans="herm"),
    "HER2K": dict(flip=["UPLO"], trans="herm", when="always", scalars=["ALPHA"]),
    "TRMM": dict(swap=[("M", "N")], flip=["SIDE", "UPLO"]),
    "TRSM": dict(swap=[("M", "N")], flip=["SIDE", "UPLO"]),
    "GEMV": dict(swap=[("M", "N")], trans="vector", **VECTOR_CONJ),
    "GBMV": dict(swap=[("M", "N"), ("KL", "KU")], trans="vector", **VECTOR_CONJ),
    "SYMV": dict(flip=["UPLO"]), "SBMV": dict(flip=["UPLO"]), "SPMV": dict(flip=["UPLO"]),
    "HEMV": HERM_VECTOR, "HBMV": HERM_VECTOR, "HPMV": HERM_VECTOR,
    "TRMV": TRIANGULAR, "TBMV": TRIANGULAR, "TPMV": TRIANGULAR,
    "TRSV": TRIANGULAR, "TBSV": TRIANGULAR, "TPSV": TRIANGULAR,
    "GER": GER, "GERU": GER,
    "GERC": dict(GER, when="always", copy=["X"], entry="GERU"),
    "SYR": dict(flip=["UPLO"]), "SPR": dict(flip=["UPLO"]),
    "SYR2": dict(flip=["UPLO"]), "SPR2": dict(flip=["UPLO"]),
    "HER": dict(flip=["UPLO"], when="always", copy=["X"]),
    "HPR": dict(flip=["UPLO"], when="always", copy=["X"]),
    "HER2": dict(flip=["UPLO"], swap=[("X", "Y"), ("INCX", "INCY")], when="always", copy=["X", "Y"]),
    "HPR2": dict(flip=["UPLO"], swap=[("X", "Y"), ("INCX", "INCY")], when="always", copy=["X", "Y"]),
}

# CBLAS's names of the options, as its reports spell them.
OPTION_NAME = {"UPLO": "Uplo", "DIAG": "Diag", "SIDE": "Side", "TRANSA": "TransA", "TRANSB": "TransB"}
VECTOR_LENGTH = re.compile(r"1\+\((\w+)-1\)\*ABS\((\w+)\)")


def args_of(r: catalogue.Routine) -> list[catalogue.Arg]:
    return [a for a in r.args if a.base not in ("hc", "hz")]


def component(r: catalogue.Routine) -> str:
    return REAL[r.name[0].lower()]


def is_complex(r: catalogue.Routine) -> bool:
    return r.name[0] in "CZ"


def cblas_param(a: catalogue.Arg, r: catalogue.Routine) -> str:
    """The CBLAS parameter: integers, options and real scalars by value,
    complex scalars and arrays by pointer (complex data as void)."""
    name = param_name(a)
    const = "const " if a.intent == "in" else ""
    if a.base in ("ch", "i"):
        return f"const int {name}"
    if a.base in ("s", "d"):
        return f"const {REAL[a.base]} {name}" if not a.is_array and a.intent == "in" else \
            f"{const}{REAL[a.base]}* {name}"
    if a.base in ("c", "z"):
        return f"{const}void* {name}"
    raise ValueError(f"{r.name}: no CBLAS form for {a.kind}")


def pointer(a: catalogue.Arg, expr: str) -> str:
    """The Fortran entry's pointer to a CBLAS parameter."""
    if a.base in ("ch",):
        return f"&o_{expr}"
    if a.base == "i" or (a.base in ("s", "d") and not a.is_array and a.intent == "in"):
        return f"&{expr}"
    if a.base in ("c", "z"):
        const = "const " if a.intent == "in" else ""
        return f"static_cast<{const}{REAL[a.base]}*>({expr})"
    return expr


def entry_call(entry: catalogue.Routine, values: list[str]) -> str:
    lengths = ["1"] * sum(a.base in ("ch", "str") for a in args_of(entry)) if dropin.passes_lengths(entry) else []
    return f'VORN_instable_{entry.lower}({", ".join(values + lengths)});'


def option_name(a: catalogue.Arg, r: catalogue.Routine) -> str:
    if a.name == "TRANS" or (a.name == "TRANSA" and r.name[1:] in ("TRMM", "TRSM")):
        return "Trans" if r.group == "B4" else "TransA"
    return OPTION_NAME[a.name]


def converter(fortran: str, family: str, row: bool) -> str:
    """The option test and conversion for the Fortran option `fortran`:
    a call template with {v} (the CBLAS value) and {c} (the letter)."""
    rule = ROW[family] if row else {}
    if fortran == "UPLO":
        return f'to_uplo({{v}}, {"true" if "UPLO" in rule.get("flip", []) else "false"}, {{c}})'
    if fortran == "SIDE":
        return f'to_side({{v}}, {"true" if "SIDE" in rule.get("flip", []) else "false"}, {{c}})'
    if fortran == "DIAG":
        return "to_diag({v}, {c})"
    how = rule.get("trans", "keep")
    return {"keep": "to_trans({v}, {c})", "sym": "to_trans_rank({v}, 'T', {c})",
            "herm": "to_trans_rank({v}, 'C', {c})", "vector": "to_trans_vector({v}, {c}, conjugate)"}[how]


def order_body(r: catalogue.Routine, entry: catalogue.Routine, row: bool, cname: str, indent: str) -> list[str]:
    """One layout's branch: option checks, conjugations, report record and call."""
    family = r.name[1:]
    rule = ROW[family] if row else {}
    fargs = args_of(r)
    names = [a.name for a in fargs]
    cblas_pos = {a.name: i + 2 for i, a in enumerate(fargs)}  # the layout is 1
    source = {n: n for n in names}  # Fortran argument -> CBLAS argument
    for p, q in rule.get("swap", []):
        source[p], source[q] = source[q], source[p]
    by_name = {a.name: a for a in fargs}
    lines = []
    if rule.get("trans") == "vector":
        lines.append(f"{indent}[[maybe_unused]] bool conjugate = false;")
    # Options, tested in CBLAS order so that the first bad one is reported.
    receiver = {source[n]: n for n in names}
    for a in fargs:
        if a.base != "ch":
            continue
        test = converter(receiver[a.name], family, row).format(v=param_name(a), c=f"o_{param_name(a)}")
        lines.append(f"{indent}char o_{param_name(a)};")
        lines.append(f"{indent}if (!{test}) return refuse({cblas_pos[a.name]}, \"{cname}\", "
                     f"\"Illegal {option_name(a, r)} setting, %d\\n\", {param_name(a)});")
    values = {n: pointer(by_name[source[n]], param_name(by_name[source[n]])) for n in names}
    if row and is_complex(r) and "when" in rule:
        cond = "true" if rule["when"] == "always" else "conjugate"
        real = component(r)
        dims = {a.name: a.dim for a in args_of(entry)}
        for n in rule.get("scalars", []):
            lines.append(f"{indent}const auto s_{n.lower()} = scalar<{real}>({param_name(by_name[source[n]])}, {cond});")
            values[n] = f"reinterpret_cast<const {real}*>(&s_{n.lower()})"
        for kind in ("copy", "inplace"):
            for n in rule.get(kind, []):
                length, inc = VECTOR_LENGTH.fullmatch(dims[n]).groups()
                vec, cnt, stride = (param_name(by_name[source[x]]) for x in (n, length, inc))
                if kind == "copy":
                    lines.append(f"{indent}const Conjugated<{real}> c_{n.lower()}({cond}, {vec}, {cnt}, {stride});")
                    lines.append(f'{indent}if (c_{n.lower()}.failed()) return out_of_memory("{cname}");')
                    values[n], values[inc] = f"c_{n.lower()}.data()", f"c_{n.lower()}.inc()"
                else:
                    lines.append(f"{indent}const ConjugatedInPlace<{real}> i_{n.lower()}({cond}, {vec}, {cnt}, {stride});")
    positions = ", ".join(str(cblas_pos[source[n]]) for n in names)
    lines.append(f"{indent}static constexpr unsigned char positions[] = {{0, {positions}}};")
    lines.append(f'{indent}const Reports reports("{cname}", positions, {len(names)});')
    lines.append(indent + entry_call(entry, [values[n] for n in names]))
    return lines


def level23(r: catalogue.Routine, by_name: dict[str, catalogue.Routine]) -> str:
    cname = f"cblas_{r.lower}"
    entry = by_name[r.name[0] + ROW[r.name[1:]]["entry"]] if "entry" in ROW[r.name[1:]] else r
    params = ["const int layout"] + [cblas_param(a, r) for a in args_of(r)]
    out = [f'VORN_DROPIN_EXPORT void {cname}({", ".join(params)}) {{', "  const Call call;",
           "  if (layout == kColMajor) {"]
    out += order_body(r, r, False, cname, "    ")
    out.append("  } else if (layout == kRowMajor) {")
    out += order_body(r, entry, True, cname, "    ")
    out += ["  } else {", f'    refuse(1, "{cname}", "Illegal layout setting, %d\\n", layout);', "  }", "}"]
    return "\n".join(out)


def level1(r: catalogue.Routine) -> str:
    fargs = args_of(r)
    params = [cblas_param(a, r) for a in fargs]
    values = [pointer(a, param_name(a)) for a in fargs]
    if r.result in ("c", "z"):
        # Complex functions return through a trailing pointer.
        out_name = "dotc" if r.name.endswith("C") else "dotu"
        params.append(f"void* {out_name}")
        values.insert(0, f"static_cast<{REAL[r.result]}*>({out_name})")
        head = f'void cblas_{r.lower}_sub({", ".join(params)})'
        body = f"  {entry_call(r, values)}"
    elif r.result == "i":
        # Zero-based, and 0 for an empty vector as for a one-element one.
        head = f'std::size_t cblas_{r.lower}({", ".join(params)})'
        body = (f"  const int i = {entry_call(r, values)[:-1]};\n"
                "  return i > 0 ? static_cast<std::size_t>(i - 1) : 0;")
    elif r.result == "sub":
        head = f'void cblas_{r.lower}({", ".join(params)})'
        body = f"  {entry_call(r, values)}"
    else:
        head = f'{REAL[r.result]} cblas_{r.lower}({", ".join(params)})'
        body = f"  return {entry_call(r, values)}"
    return f"VORN_DROPIN_EXPORT {head} {{\n{body}\n}}"


def sub_helper(r: catalogue.Routine) -> str:
    """The reference library's Fortran-callable form of a function: the
    value goes to a trailing argument."""
    fargs = args_of(r)
    params = [f"{caller_type(a)} {param_name(a)}" for a in fargs]
    values = [param_name(a) for a in fargs]
    result = {"i": "int", "s": "float", "d": "double", "c": "float", "z": "double"}[r.result]
    params.append(f"{result}* value")
    if r.result in ("c", "z"):
        body = f"  {entry_call(r, ['value'] + values)}"
    else:
        body = f"  *value = {entry_call(r, values)}"
    return f'VORN_DROPIN_EXPORT void {r.lower}sub_({", ".join(params)}) {{\n{body}\n}}'


def source(routines: list[catalogue.Routine]) -> str:
    by_name = {r.name: r for r in routines}
    selected = [r for r in routines if r.source.startswith(dropin.REFERENCE_BLAS_SOURCE) and r.name not in HAND]
    entries = {r.name: r for r in selected}
    for r in selected:
        rule = ROW.get(r.name[1:], {})
        if "entry" in rule:
            entries[r.name[0] + rule["entry"]] = by_name[r.name[0] + rule["entry"]]
    out = [HEADER, "#include <cstddef>", "", '#include "dropin/cblas_support.h"', "",
           'extern "C" {', "", "// The plain family's entries, as these call them."]
    out += [dropin.forwarder(e)[0] for e in entries.values()]
    out += ["", "using namespace vorn_cblas;", ""]
    for r in selected:
        out.append((level23(r, by_name) if r.group in ("B3", "B4") else level1(r)) + "\n")
    for r in selected:
        if r.result != "sub":
            out.append(sub_helper(r) + "\n")
    out.append('}  // extern "C"')
    return "\n".join(out) + "\n"


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--out", required=True, type=Path)
    args = ap.parse_args()
    args.out.parent.mkdir(parents=True, exist_ok=True)
    write_if_changed(args.out, source(catalogue.load(args.catalogue)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
