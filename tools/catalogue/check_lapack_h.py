#!/usr/bin/env python3
"""Cross-check catalogue/routines.cat against LAPACKE's lapack.h.

lapack.h is an independent transcription of the same Fortran interfaces, so
every routine it declares must agree with the catalogue on:

  * the number of arguments and their order;
  * the kind of each argument: integer, logical, character, real single,
    real double, complex single, complex double or callback.  CHARACTER*1 and
    CHARACTER*(*) both appear as 'char const*', so they compare as one kind;
  * writability: an argument the catalogue marks out or io must be a
    non-const pointer in lapack.h (writing through a const pointer would be
    wrong in one of the two).  A catalogue 'in' argument that lapack.h leaves
    non-const is only counted, since lapack.h is not const-complete;
  * the function result type, with the hidden complex result of the
    catalogue (RESULT:hc / RESULT:hz) matched against a by-value complex
    return in lapack.h.

Scalar versus array cannot be compared: lapack.h passes both as pointers
('lapack_int const* n' and 'lapack_int const* ipiv' look alike).  The hidden
string lengths (the size_t parameters under LAPACK_FORTRAN_STRLEN_END) are
not arguments and are dropped.

Disagreements that have been looked into and explained are listed in
EXPLAINED; any other disagreement, or an EXPLAINED entry that no longer
disagrees, makes the exit status non-zero.

--check-regenerated instead rebuilds the catalogue into memory and compares
it byte for byte with the committed catalogue/routines.cat.
"""

import argparse
import difflib
import os
import re
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True  # keep the source tree free of __pycache__

import make_catalogue  # noqa: E402

DEFAULT_HEADER = "/usr/include/lapack.h"

# name -> why lapack.h and the catalogue differ for that routine.
EXPLAINED = {
    "LSAME": "lapack.h adds two by-value 'lapack_int lca, lcb' parameters after "
             "CA and CB; the Fortran LSAME has only CA and CB (the lengths are "
             "the hidden ones, which lapack.h declares again as size_t)",
    "CGGSVD": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/cggsvd.f is a SUBROUTINE",
    "DGGSVD": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/dggsvd.f is a SUBROUTINE",
    "SGGSVD": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/sggsvd.f is a SUBROUTINE",
    "ZGGSVD": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/zggsvd.f is a SUBROUTINE",
    "CGGSVP": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/cggsvp.f is a SUBROUTINE",
    "DGGSVP": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/dggsvp.f is a SUBROUTINE",
    "SGGSVP": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/sggsvp.f is a SUBROUTINE",
    "ZGGSVP": "lapack.h declares the deprecated subroutine with a lapack_int "
              "result; SRC/DEPRECATED/zggsvp.f is a SUBROUTINE",
}

_RFSX_SCALES = ("doxygen marks the scale factors {args} [in,out] with text carried "
                "over from the expert drivers ('an input argument if FACT = F; "
                "otherwise an output argument'), but this routine has no FACT and "
                "only reads them; lapack.h's const is the accurate one")
for _name, _args in (("SPORFSX", "S"), ("DPORFSX", "S"), ("CPORFSX", "S"), ("ZPORFSX", "S"),
                     ("SSYRFSX", "S"), ("DSYRFSX", "S"), ("CSYRFSX", "S"), ("ZSYRFSX", "S"),
                     ("CHERFSX", "S"), ("ZHERFSX", "S"),
                     ("SGBRFSX", "R and C"), ("DGBRFSX", "R and C"),
                     ("CGBRFSX", "R and C"), ("ZGBRFSX", "R and C")):
    EXPLAINED[_name] = _RFSX_SCALES.format(args=_args)
for _name in ("CHEGST", "ZHEGST"):
    EXPLAINED[_name] = ("B really is [in,out]: ?HEGS2 conjugates rows of B in place "
                        "with ?LACGV and restores them afterwards; lapack.h declares "
                        "it const all the same")

for _name in ("SOPMTR", "DOPMTR", "CUPMTR", "ZUPMTR"):
    EXPLAINED[_name] = ("AP is documented [in] but the routine overwrites each "
                        "diagonal element AP(II) with ONE around the reflector "
                        "application and restores it, so the catalogue makes it "
                        "io; lapack.h declares it const")

C_BASE = {
    "lapack_int": "i",
    "lapack_logical": "l",
    "char": "char",
    "float": "s",
    "double": "d",
    "lapack_complex_float": "c",
    "lapack_complex_double": "z",
}
C_RESULT = {
    "void": "sub",
    "lapack_int": "i",
    "lapack_logical": "l",
    "float": "s",
    "lapack_float_return": "s",
    "double": "d",
    "lapack_complex_float": "c",
    "lapack_complex_double": "z",
    "char": "ch",
}
CAT_BASE = {"i": "i", "l": "l", "ch": "char", "str": "char", "s": "s", "d": "d",
            "c": "c", "z": "z", "fn": "fn"}


class HeaderError(Exception):
    pass


# ---------------------------------------------------------------------------
# lapack.h


def _strip_preprocessor(text):
    """Drop comments and preprocessor lines, and the body of every
    '#ifdef LAPACK_FORTRAN_STRLEN_END' branch (the hidden string lengths);
    the '#else' branches are kept."""
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    text = re.sub(r"//[^\n]*", " ", text)
    text = re.sub(r"\\\n", " ", text)
    out, stack = [], []   # stack of (is_strlen_block, in_else)
    for line in text.split("\n"):
        stripped = line.strip()
        if stripped.startswith("#"):
            word = stripped[1:].strip().split()
            directive = word[0] if word else ""
            if directive in ("if", "ifdef", "ifndef"):
                stack.append([directive == "ifdef" and word[1:2] == ["LAPACK_FORTRAN_STRLEN_END"],
                              False])
            elif directive in ("else", "elif") and stack:
                stack[-1][1] = True
            elif directive == "endif" and stack:
                stack.pop()
            continue
        if any(strlen and not in_else for strlen, in_else in stack):
            continue
        out.append(line)
    return "\n".join(out)


_PROTO = re.compile(
    r"^[ \t]*(?P<ret>[A-Za-z_][\w \t]*?)[ \t]+LAPACK_(?P<name>\w+?)(?:_base)?\s*"
    r"\((?P<params>[^()]*)\)\s*;", re.M)
_PARAM = re.compile(
    r"^(?P<pre_const>const\s+)?(?P<type>\w+)\s*(?P<post_const>const\s*)?(?P<ptr>\*?)\s*"
    r"(?P<name>\w+)?$")


def parse_header(path):
    """Map upper-case routine name -> (result, [(kind, pointer, const)])."""
    with open(path, encoding="utf-8") as handle:
        text = _strip_preprocessor(handle.read())
    protos = {}
    for m in _PROTO.finditer(text):
        ret = " ".join(m.group("ret").split())
        if ret.startswith("typedef") or ret.startswith("#"):
            continue
        if ret not in C_RESULT:
            raise HeaderError(f"LAPACK_{m.group('name')}: unknown result type {ret!r}")
        params = []
        body = " ".join(m.group("params").split())
        for raw in (p.strip() for p in body.split(",")) if body and body != "void" else ():
            pm = _PARAM.match(raw)
            if not pm:
                raise HeaderError(f"LAPACK_{m.group('name')}: cannot read parameter {raw!r}")
            ctype = pm.group("type")
            if re.match(r"^LAPACK_[SDCZ]_SELECT\d$", ctype):
                kind = "fn"
            elif ctype in C_BASE:
                kind = C_BASE[ctype]
            else:
                raise HeaderError(f"LAPACK_{m.group('name')}: unknown type {ctype!r}")
            pointer = pm.group("ptr") == "*"
            const = bool(pm.group("pre_const") or pm.group("post_const"))
            params.append((kind, pointer, const, pm.group("name") or ""))
        name = m.group("name").upper()
        if name in protos and protos[name] != (C_RESULT[ret], params):
            raise HeaderError(f"LAPACK_{m.group('name')} declared twice, differently")
        protos[name] = (C_RESULT[ret], params)
    if not protos:
        raise HeaderError(f"no prototypes found in {path}")
    return protos


# ---------------------------------------------------------------------------
# catalogue


def read_catalogue(path):
    """Map NAME -> (result, [(arg name, kind, intent)]) in file order."""
    routines = {}
    with open(path, encoding="utf-8") as handle:
        for line in handle:
            if line.startswith("#") or not line.strip():
                continue
            fields = line.split()
            args = []
            for arg in fields[3:-1]:
                aname, kind, intent = arg.split(":", 3)[:3]
                args.append((aname, kind, intent))
            routines[fields[0]] = (fields[2], args)
    return routines


def compare(name, cat, proto):
    """Return the list of differences for one routine (empty if they agree)."""
    result, args = cat
    h_result, params = proto
    problems = []
    hidden = [a for a in args if a[1] in ("hc", "hz")]
    args = [a for a in args if a[1] not in ("hc", "hz")]
    if hidden and h_result != hidden[0][1][1]:
        problems.append(f"catalogue returns {hidden[0][1]} (hidden complex result), "
                        f"lapack.h returns {h_result}")
    elif result != h_result:
        problems.append(f"result: catalogue {result}, lapack.h {h_result}")
    if len(args) != len(params):
        problems.append(f"argument count: catalogue {len(args)}, lapack.h {len(params)} "
                        f"({', '.join(p[3] for p in params)})")
    for pos, ((aname, kind, intent), (hkind, pointer, const, hname)) in \
            enumerate(zip(args, params), 1):
        base = CAT_BASE[kind.rstrip("[]")]
        if base != hkind:
            problems.append(f"argument {pos} {aname}/{hname}: catalogue {kind}, lapack.h {hkind}")
        elif kind != "fn" and not pointer:
            problems.append(f"argument {pos} {aname}/{hname}: passed by value in lapack.h")
        elif intent in ("out", "io") and const:
            problems.append(f"argument {pos} {aname}/{hname}: catalogue {intent}, "
                            f"lapack.h const pointer")
    return problems


def cross_check(catalogue_path, header_path, verbose):
    catalogue = read_catalogue(catalogue_path)
    protos = parse_header(header_path)
    checked = agree = 0
    disagreements = {}
    loose_const = 0
    for name, cat in catalogue.items():
        if name not in protos:
            continue
        checked += 1
        problems = compare(name, cat, protos[name])
        if problems:
            disagreements[name] = problems
        else:
            agree += 1
        for (aname, kind, intent), param in zip(
                [a for a in cat[1] if a[1] not in ("hc", "hz")], protos[name][1]):
            if intent == "in" and kind != "fn" and param[1] and not param[2]:
                loose_const += 1

    print(f"routines in the catalogue:               {len(catalogue)}")
    print(f"routines declared in lapack.h:           {len(protos)}")
    print(f"catalogue routines lapack.h declares:    {checked} (cross-checked)")
    print(f"  agreements:                            {agree}")
    print(f"  disagreements:                         {len(disagreements)}")
    print(f"catalogue 'in' arguments lapack.h leaves non-const (not a disagreement): "
          f"{loose_const}")
    unexplained = 0
    for name in sorted(disagreements):
        reason = EXPLAINED.get(name)
        label = "explained" if reason else "UNEXPLAINED"
        if not reason:
            unexplained += 1
        print(f"{label}: {name}")
        for problem in disagreements[name]:
            print(f"    {problem}")
        if reason:
            print(f"    reason: {reason}")
    stale = sorted(set(EXPLAINED) - set(disagreements))
    for name in stale:
        print(f"STALE explanation: {name} no longer disagrees (or is not checked)")
    if verbose:
        missing = sorted(set(catalogue) - set(protos))
        print(f"catalogue routines lapack.h does not declare ({len(missing)}): "
              + " ".join(missing))
    if unexplained or stale:
        print(f"check_lapack_h: {unexplained} unexplained disagreement(s), "
              f"{len(stale)} stale explanation(s)", file=sys.stderr)
        return 1
    return 0


def check_regenerated(catalogue_path, sources, groups, hand):
    notes = make_catalogue.Notes()
    try:
        fresh = make_catalogue.build(sources, groups, hand, notes)
    except (make_catalogue.CatalogueError, OSError) as exc:
        print(f"check_lapack_h: cannot regenerate the catalogue: {exc}", file=sys.stderr)
        return 1
    with open(catalogue_path, encoding="utf-8", newline="") as handle:
        committed = handle.read()
    if fresh == committed:
        print(f"{catalogue_path} is exactly what make_catalogue.py generates")
        return 0
    diff = difflib.unified_diff(committed.splitlines(True), fresh.splitlines(True),
                                "committed", "regenerated", n=0)
    sys.stdout.writelines(list(diff)[:60])
    print(f"check_lapack_h: {catalogue_path} differs from a fresh generation; "
          "rerun tools/catalogue/make_catalogue.py", file=sys.stderr)
    return 1


def main(argv=None):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--catalogue", default=make_catalogue.DEFAULT_OUTPUT)
    parser.add_argument("--header", default=DEFAULT_HEADER)
    parser.add_argument("--check-regenerated", action="store_true",
                        help="regenerate the catalogue and compare it with the committed file")
    parser.add_argument("--sources", default=make_catalogue.DEFAULT_SOURCES)
    parser.add_argument("--groups", default=make_catalogue.DEFAULT_GROUPS)
    parser.add_argument("--hand", default=make_catalogue.DEFAULT_HAND)
    parser.add_argument("--verbose", action="store_true")
    args = parser.parse_args(argv)
    try:
        if args.check_regenerated:
            return check_regenerated(args.catalogue, args.sources, args.groups, args.hand)
        return cross_check(args.catalogue, args.header, args.verbose)
    except (HeaderError, OSError, ValueError) as exc:
        print(f"check_lapack_h: error: {exc}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
