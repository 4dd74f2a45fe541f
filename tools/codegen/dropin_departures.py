#!/usr/bin/env python3
"""Where the layer's contract departs from the reference's documented
behaviour on a standard name, and what the companion libraries do about it.

The layer keeps its own contract (copy lengths, outputs it leaves alone, the
computational library's LOGICAL); a program written against the reference
must not see it through libblas.so.3 / liblapack.so.3. DEPARTURES is the one
reviewed table: a LAPACK name in it goes to the reference implementation
through liblapack.so.3's jump stubs (its inner BLAS/LAPACK calls still come
back through the companions into the layer); a BLAS name gets the
reference's quick return in its forwarder.

`--check` derives the candidates mechanically from the catalogue (LAPACK's
documented dimensions and intents), the override tables as the generator
applies them and the reference sources' parameter texts, and fails on any
candidate that is neither in DEPARTURES nor in REVIEWED with a reason.
`--list` writes the routed names, one a line, for the guard-page harness."""
from __future__ import annotations

import argparse
import random
import re
import sys
from dataclasses import dataclass
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402

REFERENCE = "reference"  # liblapack.so.3 jumps into the reference LAPACK
QUICK_RETURN = "quick return"  # libblas.so.3 returns as the reference does


@dataclass(frozen=True)
class Departure:
    families: str  # precision-less names (or full names), blank-separated
    precisions: str  # letters the families take, "" for full names
    reason: str
    handling: str


DEPARTURES = (
    Departure("GEJSV", "SD", "IWORK(1:3) carry the rank estimate, the count of nonzero singular values and the "
              "warning flag; the layer treats IWORK as pure workspace and leaves it as the caller had it",
              REFERENCE),
    Departure("BDSDC", "SD", "IQ (COMPQ = 'P') is copied back over 3N(NLVL+1) elements, NLVL from the layer's leaf "
              "size, beyond the documented LDIQ", REFERENCE),
    Departure("LAEDA", "SD", "PRMPTR, PERM, GIVPTR and GIVCOL are converted over the subproblem's N ln N elements "
              "(truncated byte counts), not the whole tree the reference caller ?LAED7 indexes", REFERENCE),
    Departure("GEES GEESX GGES GGESX", "SDCZ", "the SELECT/SELCTG callback is read by the computational library "
              "as a 64-bit LOGICAL (the whole result register); a gfortran LOGICAL function returns 32 bits",
              REFERENCE),
    Departure("TREVC", "SD", "SELECT is copied back after the call: the computational library sets both halves of "
              "a selected complex pair, where the reference leaves SELECT as the caller had it", REFERENCE),
    Departure("STEBZ", "SD", "IBLOCK and ISPLIT are copied back over N elements: the entries past M and past NSPLIT, "
              "which the reference leaves alone, come back with whatever the library left in the scratch array",
              REFERENCE),
    Departure("SBGVX", "SD", "IFAIL is copied back over N elements; its documented dimension is M, and the "
              "reference writes no further", REFERENCE),
    # Found by the guard-page harness (tests/dropin/guard_page_harness_test.cpp): integer outputs copied
    # back over their whole documented or scratch length, where the reference writes only the part its
    # results fill and leaves the rest as the caller had it (or, past the documented size, owns nothing).
    Departure("SPGVX", "SD", "IFAIL is copied back over N elements past the M the reference writes", REFERENCE),
    Departure("HPGVX HBGVX", "CZ", "IFAIL is copied back over N elements past the M the reference writes; M "
              "comes back 0 where the reference returns before setting it (B not positive definite)", REFERENCE),
    Departure("HSEIN", "SDCZ", "IFAILL and IFAILR are copied back over MM elements past the M the reference "
              "writes", REFERENCE),
    Departure("LAED8", "SDCZ", "GIVCOL is copied back over 2N elements past the GIVPTR rotations the reference "
              "writes", REFERENCE),
    Departure("LARRA", "SD", "ISPLIT is copied back over N elements past the NSPLIT the reference writes",
              REFERENCE),
    Departure("LARRD", "SD", "IBLOCK and INDEXW are copied back over N elements past the M the reference writes",
              REFERENCE),
    Departure("LARRV", "SDCZ", "ISUPPZ is copied back over 2N elements past the 2M the reference writes",
              REFERENCE),
    Departure("LASDT", "SD", "INODE, NDIML and NDIMR are copied back over N elements past the ND tree nodes "
              "the reference writes", REFERENCE),
    Departure("LASD6 LASD7", "SD", "PERM, GIVCOL (and ?LASD7's IDX, IDXP) come back with scratch contents "
              "where the reference leaves them", REFERENCE),
    Departure("LASDA", "SD", "GIVCOL is copied back over the layer's own tree depth, past the documented "
              "LDGCOL*2*NLVL: a write past the caller's array", REFERENCE),
    Departure("LASYF", "SDCZ", "IPIV is copied back over N elements; the reference writes only the KB columns "
              "it factored", REFERENCE),
    Departure("LAHEF", "CZ", "IPIV is copied back over N elements; the reference writes only the KB columns "
              "it factored", REFERENCE),
    Departure("LASD2", "SD", "IDXP, IDX and IDXC come back with scratch contents in the first position, which "
              "the reference leaves as the caller had it", REFERENCE),
    Departure("IPARMQ", "", "ISPEC = 17 (ICOST, the cost ratio ?LAQZ0 reads through ILAENV) is unknown to the "
              "computational library's LAPACK 3.8, which answers -1", REFERENCE),
    Departure("ASUM SCAL", "SD", "INCX <= 0: the reference returns at once (?ASUM gives 0, ?SCAL leaves X); the "
              "computational library uses |INCX|", QUICK_RETURN),
    Departure("SCASUM DZASUM CSCAL ZSCAL CSSCAL ZDSCAL", "", "INCX <= 0: the reference returns at once; the "
              "computational library uses |INCX|", QUICK_RETURN),
)


def departures() -> dict[str, Departure]:
    """Routine name -> its entry."""
    out = {}
    for d in DEPARTURES:
        for family in d.families.split():
            for name in ([p + family for p in d.precisions] if d.precisions else [family]):
                if name in out:
                    raise ValueError(f"{name} listed twice")
                out[name] = d
    return out


def routed_to_reference() -> frozenset[str]:
    return frozenset(n for n, d in departures().items() if d.handling == REFERENCE)


def quick_return() -> frozenset[str]:
    return frozenset(n for n, d in departures().items() if d.handling == QUICK_RETURN)


# Candidates the derivation finds that are not departures, each with the
# reason. Keyed by (routine or family, array, kind of candidate).
REVIEWED = {
    **{(f, a, "tree"): "the whole tree's pointer arrays, indexed by the node the routine merges; "
       "the guard-page harness calls ?LAED7 on a tree of its own and compares with the reference"
       for f in ("LAED7",) for a in ("QPTR", "PRMPTR", "PERM", "GIVPTR", "GIVCOL")},
    ("LALSD", "*", "hand"): "its one array, IWORK, is sized by the layer's own leaf size but is pure "
                            "workspace: nothing of the caller's is read or written",
    **{(f, a, "hand"): "hand-written frame: its copies are covered by the guard-page harness against the "
       "reference" for f in ("GELSD", "LASWP") for a in ("*",)},
}

# The fixed value every integer scalar takes when lengths are compared; the
# comparison runs over several of them.
_SAMPLES = (1, 2, 3, 5, 8, 13)
_TOKEN = re.compile(r"\s*(?:(\d+)|([A-Z][A-Z0-9_]*)|(\*\*|[-+*/(),]))")


def _lg(n: int) -> int:
    k = 0
    while (1 << k) < n:
        k += 1
    return k


def evaluate(text: str, values: dict[str, int]) -> int | None:
    """An element count written in the catalogue's notation (a DIM or a
    length of the override tables), or None when it names something that
    has no value here (tree positions, options)."""
    total = 1
    for part in catalogue.split_top(text):
        out, pos = [], 0
        while pos < len(part):
            m = _TOKEN.match(part, pos)
            if not m or m.end() == pos:
                return None
            number, name, op = m.groups()
            pos = m.end()
            if number:
                out.append(number)
            elif op:
                out.append({"/": "//", ",": ","}.get(op, op))
            elif name in ("MAX", "MIN", "ABS"):
                out.append(name.lower())
            elif name == "LG":
                out.append("_lg")
            elif name in values:
                out.append(str(values[name]))
            else:
                return None
        try:
            total *= int(eval("".join(out), {"__builtins__": {}, "max": max, "min": min, "abs": abs, "_lg": _lg}))
        except (SyntaxError, TypeError, ZeroDivisionError):
            return None
    return total


def _doc_outputs(sources: Path, r: catalogue.Routine) -> set[str]:
    """Arrays whose parameter text in the reference source says what they
    hold on exit (beyond a minimal workspace length in IWORK(1))."""
    path = sources / r.source
    if not path.is_file():
        return set()
    text = path.read_text(errors="replace")
    found = set()
    for m in re.finditer(r"\\param\[\w+\] (\w+)\n(.*?)(?=\\param|\\author|\Z)", text, re.S):
        body = " ".join(line.lstrip("*> ").strip() for line in m.group(2).splitlines())
        body = re.sub(r"On exit, if INFO ?= ?0, IWORK\(1\) returns the \w+ (\(and minimal\) )?L?I?WORK\.?", "", body)
        if re.search(r"\bon exit\b|\breturns\b|\bcontains\b|\bstores\b", body, re.I):
            found.add(m.group(1))
    return found


def derive(routines: list[catalogue.Routine], sources: Path | None) -> list[tuple[str, str, str, str]]:
    """(routine, array, kind, detail) for every place where the layer's
    handling of an integer or logical array, or of a callback, can differ
    from the documented behaviour."""
    import interfaces
    import overrides

    found = []
    hand = overrides.hand_written()
    for r in routines:
        if r.is_blas:
            continue
        if any(a.base == "fn" for a in r.args):
            found.append((r.name, next(a.name for a in r.args if a.base == "fn"), "callback",
                          "an EXTERNAL function the computational library calls"))
        if not r.has_integer_arrays:
            continue
        if r.name in hand:
            found.append((r.name, "*", "hand", overrides.hand_written_file(r.name)))
            continue
        documented = _doc_outputs(sources, r) if sources else set()
        scalars = [a.name for a in r.args if a.is_integer_scalar]
        derived = overrides.keyed(overrides.DERIVED_SIZES, r.name) or {}
        for a in r.args:
            if not a.is_integer_array:
                continue
            rule = interfaces._merged_rule(r, a)
            if a.intent in ("out", "io") and not rule.copy_back and a.name in documented:
                found.append((r.name, a.name, "not copied back", "its text documents an output"))
            if a.intent == "in" and rule.copy_back:
                found.append((r.name, a.name, "written", "copied back although documented as input"))
            if a.dim in (None, "?") or "TREE" in (rule.length or "") or "NODE" in (rule.length or ""):
                if rule.copy_in or rule.copy_back:
                    found.append((r.name, a.name, "tree", "no documented dimension the layer can follow"))
                continue
            copies = [rule.length] if rule.copy_in else []
            if rule.copy_back:
                copies.append(rule.back_length or rule.length)
            draw = random.Random(r.name + a.name)
            for _ in range(64):
                env = {s: draw.choice(_SAMPLES) for s in scalars}
                env.update({k: evaluate(v, env) for k, v in derived.items()})
                if "LIWORK" in env:
                    env["LIWORK"] = max(env["LIWORK"], 1)
                limit = evaluate(a.dim, env)
                over = [c for c in copies if limit is not None and (evaluate(c, env) or 0) > limit]
                if over:
                    found.append((r.name, a.name, "beyond", f"copies {over[0]} where the DIM is {a.dim}"))
                    break
    return found


def covered(name: str, array: str, kind: str) -> str | None:
    """Why a candidate needs nothing more, or None."""
    if name in departures():
        return "departure"
    for key in ((name, array, kind), (name[1:], array, kind), (name, "*", kind), (name[1:], "*", kind)):
        if key in REVIEWED:
            return "reviewed"
    return None


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--sources", type=Path, help="the reference LAPACK source tree, for --check")
    ap.add_argument("--check", action="store_true")
    ap.add_argument("--verbose", action="store_true", help="--check: every candidate")
    ap.add_argument("--list", type=Path, help="write the names routed to the reference")
    args = ap.parse_args()
    routines = catalogue.load(args.catalogue)
    known = {r.name for r in routines}
    unknown = sorted(set(departures()) - known)
    if unknown:
        ap.error(f"not in the catalogue: {' '.join(unknown)}")
    if args.list:
        args.list.parent.mkdir(parents=True, exist_ok=True)
        text = "".join(f"{n.lower()}_\n" for n in sorted(routed_to_reference()))
        if not args.list.exists() or args.list.read_text() != text:
            args.list.write_text(text)
    if args.check:
        problems = 0
        candidates = derive(routines, args.sources)
        for name, array, kind, detail in candidates:
            how = covered(name, array, kind)
            if how is None:
                print(f"{name} {array}: {kind} ({detail}): neither a departure nor reviewed")
                problems += 1
            elif args.verbose:
                print(f"{name} {array}: {kind} ({detail}): {how}")
        used = {k for k in REVIEWED if any(k in ((n, a, kd), (n[1:], a, kd), (n, "*", kd), (n[1:], "*", kd))
                                           for n, a, kd, _ in candidates)}
        for k in sorted(set(REVIEWED) - used):
            print(f"reviewed entry {k} matches no candidate")
            problems += 1
        print(f"{len(departures())} names in the table, {problems} problems")
        return 1 if problems else 0
    return 0


if __name__ == "__main__":
    sys.exit(main())
