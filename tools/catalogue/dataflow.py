#!/usr/bin/env python3
"""Cross-check the catalogue's data flow against the Fortran compiler's own
reading of the reference sources.

gfortran -fdump-fortran-original prints, for every program unit, each dummy
argument's declaration and the parsed code: every assignment, every call
with its actual arguments, every expression.  From that this tool derives,
for every dummy argument of every reference routine:

  * read:    the value on entry can be used (the first access, in source
             order, is a read, here or in a routine it is passed on to);
  * written: the routine, or a routine it is passed on to, assigns to it.

Calls are followed through the callees' own results until nothing changes.
The derivation is then compared with

  * the kinds and order of the catalogue's arguments;
  * what the generated interface functions do with every integer and
    logical array: copy in when read, copy back when written;
  * the public header's const: an argument the routine writes is never
    const.

Every difference must be listed in tools/codegen/overrides.py
(DATAFLOW_EXPLAINED) with its reason; an unexplained difference or an
explanation that no longer matches a difference fails the run.

The compiler's dumps are cached under --cache-dir and reused while the
source tree and the compiler stay the same.
"""

import argparse
import concurrent.futures
import hashlib
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.normpath(os.path.join(HERE, "..", ".."))
sys.path.insert(0, HERE)
sys.path.insert(0, os.path.join(REPO, "tools", "codegen"))
sys.dont_write_bytecode = True

from fortran_source import parse_file  # noqa: E402

SOURCE_DIRS = ("SRC", "SRC/DEPRECATED", "BLAS/SRC", "INSTALL")
MODULES = ("SRC/la_constants.f90", "SRC/la_xisnan.F90")
BATCH = 60

# ---------------------------------------------------------------------------
# Running the compiler


def source_files(root):
    files = []
    for sub in SOURCE_DIRS:
        for name in sorted(os.listdir(os.path.join(root, sub))):
            rel = f"{sub}/{name}"
            if name.endswith((".f", ".f90", ".F", ".F90")) and rel not in MODULES:
                files.append(rel)
    return files


def _stamp(root, files, compiler):
    h = hashlib.sha256()
    h.update(subprocess.run([compiler, "--version"], capture_output=True, text=True).stdout.encode())
    h.update(open(__file__, "rb").read())
    for rel in MODULES + tuple(files):
        st = os.stat(os.path.join(root, rel))
        h.update(f"{rel}:{st.st_size}:{int(st.st_mtime)}\n".encode())
    return h.hexdigest()


def batches(root, files):
    """Files grouped for one compiler run each: same directory and source
    form, no unit name twice (the INSTALL timers and machine constants come
    in several versions)."""
    out, names = {}, {}
    for rel in files:
        form = "f90" if rel.lower().endswith(".f90") else "f"
        units = {u.name for u in parse_file(root, rel)}
        key = (os.path.dirname(rel), form, 0)
        if rel.startswith("INSTALL/"):
            key = (key[0], form, rel)  # test programs, some without PROGRAM: one a run
            out[key], names[key] = [rel], units
            continue
        while len(out.get(key, [])) >= BATCH or units & names.get(key, set()):
            key = key[:2] + (key[2] + 1,)
        out.setdefault(key, []).append(rel)
        names.setdefault(key, set()).update(units)
    return [(key[1], group) for key, group in sorted(out.items(), key=lambda kv: str(kv[0]))]


def dumps(root, cache, compiler, jobs):
    """[(files, dump text)], one per compiler run. A run compiles its files
    joined into one source, which costs one compiler process instead of
    one per file."""
    files = source_files(root)
    os.makedirs(cache, exist_ok=True)
    stamp = _stamp(root, files, compiler)
    stamp_path = os.path.join(cache, "stamp")
    groups = batches(root, files)
    paths = [os.path.join(cache, f"batch{i:03d}") for i in range(len(groups))]
    fresh = os.path.exists(stamp_path) and open(stamp_path).read() == stamp
    if not fresh:
        mods = os.path.join(cache, "mod")
        os.makedirs(mods, exist_ok=True)
        for rel in MODULES:
            subprocess.run([compiler, "-fsyntax-only", "-cpp", "-J", mods, os.path.join(root, rel)], check=True)

        def run(i):
            form, group = groups[i]
            source = f"{paths[i]}.{form}"
            with open(source, "w", encoding="latin-1") as out:
                for rel in group:
                    out.write(open(os.path.join(root, rel), encoding="latin-1").read().rstrip("\n") + "\n")
            with open(paths[i] + ".dump", "w") as out, open(paths[i] + ".err", "w") as err:
                # The sources pass arrays of one type for another, as
                # Fortran 77 allows; that must not stop the reading.
                subprocess.run([compiler, "-fsyntax-only", "-fdump-fortran-original", "-fallow-argument-mismatch",
                                "-I", mods, source], stdout=out, stderr=err)

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            list(pool.map(run, range(len(groups))))
        with open(stamp_path, "w") as handle:
            handle.write(stamp)
    return [(group, open(p + ".dump", encoding="latin-1").read()) for (_, group), p in zip(groups, paths)]


# ---------------------------------------------------------------------------
# Reading a dump


class Unit:
    def __init__(self, name, path):
        self.name = name        # upper case
        self.path = path
        self.args = []          # formal argument names, upper case
        self.decl = {}          # dummy name -> (type, is_array, is_procedure)
        self.code = []          # statement lines
        self.events = []        # ('r', dummy) | ('w', dummy) | ('call', callee, [(pos, dummy)])


_SYMTREE = re.compile(r"^  symtree: '(\w+)'")


def split_units(text):
    """[(name, lines)] for each procedure namespace of a dump."""
    units, current = [], None
    for line in text.splitlines():
        if line.startswith("procedure name = "):
            current = (line.split("=", 1)[1].strip(), [])
            units.append(current)
        elif current is not None:
            current[1].append(line)
    return units


def read_unit(name, path, lines):
    u = Unit(name.upper(), path)
    sym, in_code = None, False
    for line in lines:
        if line.startswith("  code:"):
            in_code = True
            continue
        if in_code:
            if line.startswith("------"):
                break
            if line.strip():
                u.code.append(line.strip())
            continue
        m = _SYMTREE.match(line)
        if m:
            sym = {"name": m.group(1)}
            continue
        s = line.strip()
        if sym is None:
            continue
        if s.startswith("type spec :"):
            sym["type"] = s.split(":", 1)[1].strip()
        elif s.startswith("attributes:"):
            attrs = s.split(":", 1)[1]
            if "DUMMY" in attrs:
                u.decl[sym["name"]] = [sym.get("type", ""), "DIMENSION" in attrs, "PROCEDURE" in attrs]
        elif s.startswith("Formal arglist:") and sym["name"] == name:
            u.args = [a.upper() for a in s.split(":", 1)[1].split()]
    u.decl = {k.upper(): tuple(v) for k, v in u.decl.items()}
    return u


def _closing(text, start):
    """Index just past the parenthesis group opening at text[start]."""
    depth, quote = 0, None
    for i in range(start, len(text)):
        ch = text[i]
        if quote:
            if ch == quote:
                quote = None
        elif ch == "'":
            quote = ch
        elif ch == "(":
            depth += 1
        elif ch == ")":
            depth -= 1
            if depth == 0:
                return i + 1
    return len(text)


def _groups(text):
    """The top-level parenthesised groups of an argument list, unwrapped."""
    out, i = [], 0
    while i < len(text):
        if text[i] == "(":
            j = _closing(text, i)
            out.append(text[i + 1:j - 1])
            i = j
        else:
            i += 1
    return out


class Scanner:
    """Turns the code lines of one unit into ordered read/write/call events."""

    def __init__(self, u):
        self.u = u
        self.ns = u.name.lower()
        self.ref = re.compile(r"\b" + re.escape(self.ns) + r":(\w+)")
        self.call = re.compile(r"(\w+)\[\[")

    def dummy(self, var):
        v = var.upper()
        return v if v in self.u.decl else None

    def designator(self, text):
        """(dummy, subscript text) when text is exactly a variable reference."""
        m = re.match(r"^" + re.escape(self.ns) + r":(\w+)", text)
        if not m:
            return None
        rest = text[m.end():]
        if rest and not (rest.startswith("(") and _closing(rest, 0) == len(rest)):
            return None
        return self.dummy(m.group(1)), rest

    def expression(self, text, ev):
        """Reads of every variable in text; function references as calls."""
        i = 0
        while i < len(text):
            m = self.call.search(text, i)
            end = m.start() if m else len(text)
            for r in self.ref.finditer(text, i, end):
                d = self.dummy(r.group(1))
                if d:
                    ev.append(("r", d))
            if not m:
                break
            j = text.find("]]", m.end())
            # Nested brackets: find the matching close by depth.
            depth, k = 1, m.end()
            while k < len(text) and depth:
                if text.startswith("[[", k):
                    depth += 1
                    k += 2
                elif text.startswith("]]", k):
                    depth -= 1
                    k += 2
                else:
                    k += 1
            j = k - 2
            inner = text[m.end():j].strip()
            args = _groups(inner[1:-1]) if inner.startswith("(") else []
            self.actuals(m.group(1), args, ev)
            i = k

    def actuals(self, callee, args, ev):
        passed = []
        for pos, a in enumerate(args):
            des = self.designator(a.strip())
            if des is not None:
                d, sub = des
                self.expression(sub, ev)
                if d:
                    passed.append((pos, d))
            else:
                self.expression(a, ev)
        if callee.startswith("__"):  # intrinsics only read
            ev += [("r", d) for _, d in passed]
        else:
            ev.append(("call", callee.upper(), passed))

    def run(self):
        ev = self.u.events
        for line in self.u.code:
            if line.startswith("ASSIGN "):
                rest = line[len("ASSIGN "):]
                m = re.match(r"^\w+:\w+", rest)
                end = m.end() if m else 0
                if m and rest[end:end + 1] == "(":
                    end = _closing(rest, end)
                target = self.designator(rest[:end]) if m else None
                self.expression(rest[end:], ev)
                if target is not None:
                    self.expression(target[1], ev)
                    if target[0]:
                        ev.append(("w", target[0]))
            elif line.startswith("CALL "):
                m = re.match(r"^CALL (\w+) ?(.*)$", line)
                body = m.group(2).strip()
                args = _groups(body[1:-1]) if body.startswith("(") else []
                self.actuals(m.group(1), args, ev)
            elif line.startswith(("IF ", "SELECT CASE ")):
                self.expression(line, ev)
                ev.append(("push",))
            elif line.startswith(("ELSE", "CASE ")):
                ev.append(("else",))
                self.expression(line, ev)
            elif line in ("ENDIF", "END SELECT"):
                ev.append(("pop",))
            elif line == "RETURN":
                ev.append(("return",))
            else:
                m = re.match(r"^DO\s+(?:\d+\s+)?" + re.escape(self.ns) + r":(\w+)=(.*)$", line)
                if m:
                    self.expression(m.group(2), ev)
                    d = self.dummy(m.group(1))
                    if d:
                        ev.append(("w", d))
                else:
                    self.expression(line, ev)


def load_units(root, cache, compiler, jobs):
    """{path: {NAME: Unit}} for every source file."""
    by_path = {}
    for batch, text in dumps(root, cache, compiler, jobs):
        found = {name.upper(): lines for name, lines in split_units(text)}
        for rel in batch:
            units = {}
            for x in parse_file(root, rel):
                if x.name not in found:
                    raise SystemExit(f"dataflow: no dump of {x.name} from {rel} (see the .err files in {cache})")
                u = read_unit(x.name.lower(), rel, found[x.name])
                Scanner(u).run()
                units[x.name] = u
            by_path[rel] = units
    return by_path


# ---------------------------------------------------------------------------
# Data flow


def derive(by_path):
    """{(path, NAME): {dummy: (read, written)}} to a fixed point over calls.

    Written: assigned anywhere, here or in a callee. Read: used on a path
    where nothing has assigned it yet. An assignment in one branch of an IF
    or CASE does not cover the other branches, but covers what follows the
    IF unless the branch returns (the arrays are not told apart element by
    element, and the routines write them element by element before they
    read them); one in a loop covers what follows the loop. Written is settled first, so that the reads,
    which depend on it, only ever grow."""
    units = {(p, n): u for p, us in by_path.items() for n, u in us.items()}
    # A callee resolves to its LAPACK copy before its BLAS or INSTALL one.
    order = {"SRC": 0, "SRC/DEPRECATED": 1, "BLAS/SRC": 2, "INSTALL": 3}
    callee = {}
    for (p, n), u in sorted(units.items(), key=lambda kv: -order[os.path.dirname(kv[0][0])]):
        callee[n] = (p, n)
    written = {k: set() for k in units}
    read = {k: set() for k in units}

    def effects(e, flags):
        """(dummy, callee flag) of one call's actual arguments."""
        target = callee.get(e[1])
        for pos, d in e[2]:
            if target is None:
                # A callback or a routine outside the sources: read only.
                yield d, flags is read
            elif pos < len(units[target].args):
                yield d, units[target].args[pos] in flags[target]

    for flags in (written, read):
        changed = True
        while changed:
            changed = False
            for key, u in units.items():
                found = set()
                scopes = [set()]  # assignments of each open branch
                done = [set()]    # of the closed branches of each open IF
                for e in u.events:
                    tag = e[0]
                    if tag == "push":
                        scopes.append(set())
                        done.append(set())
                    elif tag == "else":
                        done[-1] |= scopes[-1]
                        scopes[-1] = set()
                    elif tag == "pop":
                        closed = done.pop() | scopes.pop()
                        scopes[-1] |= closed
                    elif tag == "return" and len(scopes) > 1:
                        # What this branch assigned never reaches past its IF.
                        # (Code after a RETURN in the body is reached by GOTO
                        # from code that has run what went before.)
                        scopes[-1] = set()
                    elif flags is written:
                        if tag == "w":
                            found.add(e[1])
                        elif tag == "call":
                            found.update(d for d, w in effects(e, written) if w)
                    else:
                        covered = set().union(*scopes)
                        if tag == "r" and e[1] not in covered:
                            found.add(e[1])
                        elif tag == "w":
                            scopes[-1].add(e[1])
                        elif tag == "call":
                            hits = list(effects(e, read))
                            found.update(d for d, r in hits if r and d not in covered)
                            scopes[-1].update(d for d, w in effects(e, written) if w)
                found &= set(u.decl)
                if not found <= flags[key]:
                    flags[key] |= found
                    changed = True
    return {k: {d: (d in read[k], d in written[k]) for d in u.decl} for k, u in units.items()}


# ---------------------------------------------------------------------------
# Comparison


_KINDS = {"INTEGER 4": "i", "LOGICAL 4": "l", "REAL 4": "s", "REAL 8": "d", "COMPLEX 4": "c",
          "COMPLEX 8": "z"}


def _kind(decl):
    typ, array, procedure = decl
    if procedure:
        return "fn"
    m = re.match(r"\((\w+ \d+)", typ)
    base = _KINDS.get(m.group(1)) if m else None
    if base is None and typ.startswith("(CHARACTER"):
        base = "ch" if "(CHARACTER 1 1" in typ.replace(",", "") or re.search(r"\(CHARACTER 1\b", typ) else "str"
    return (base or "?") + ("[]" if array else "")


def compare(catalogue_path, groups_path, by_path, summary):
    import catalogue as cat
    import interfaces
    import overrides

    routines = cat.load(catalogue_path)
    found = {}      # (routine, arg, what) -> detail
    counts = {"routines": 0, "arrays": 0, "pointers": 0, "hand": 0}
    hand_written = overrides.hand_written()
    for r in routines:
        if r.source.startswith("hand:"):
            counts["hand"] += 1
            continue
        u = by_path[r.source][r.name]
        s = summary[(r.source, r.name)]
        counts["routines"] += 1
        args = [a for a in r.args if a.base not in ("hc", "hz")]
        if [a.name for a in args] != u.args:
            found[(r.name, "*", "order")] = f"catalogue {[a.name for a in args]} against {u.args}"
            continue
        for a in args:
            kind = _kind(u.decl[a.name])
            same = kind == a.kind or {kind, a.kind} <= {"ch", "str"} or \
                (a.base == "fn" and kind.startswith("fn"))
            if not same:
                found[(r.name, a.name, "kind")] = f"catalogue {a.kind}, compiler {kind}"
        # The header: a written argument is never const.
        for a in args:
            if a.base == "fn" or a.is_character and not a.is_array and a.intent == "in":
                continue
            counts["pointers"] += 1
            if s[a.name][1] and a.intent == "in":
                found[(r.name, a.name, "const")] = "written, declared const"
        # Integer and logical arrays of the generated interface functions.
        if r.is_blas or not r.has_integer_arrays or r.name in hand_written:
            continue
        notation = interfaces.Notation(r)
        for a in args:
            if not a.is_integer_array:
                continue
            counts["arrays"] += 1
            plan = interfaces.ArrayPlan(r, a, notation)
            read, written = s[a.name]
            if read and not plan.copy_in:
                found[(r.name, a.name, "in")] = "read on entry, never copied in"
            if plan.copy_in and not read:
                found[(r.name, a.name, "in")] = "copied in, never read on entry"
            if written and not plan.copy_back:
                found[(r.name, a.name, "back")] = "written, never copied back"
            if plan.copy_back and not written:
                found[(r.name, a.name, "back")] = "copied back, never written"
    return found, counts


def check(found, counts):
    import overrides
    explained, unexplained, used = [], [], set()
    for (name, arg, what), detail in sorted(found.items()):
        key = overrides.explained_dataflow(name, arg, what)
        if key is None:
            unexplained.append(f"{name} {arg} ({what}): {detail}")
        else:
            used.add(key)
            explained.append((name, arg, what))
    stale = sorted(set(overrides.DATAFLOW_EXPLAINED) - used)
    print(f"dataflow: {counts['routines']} routines from the reference sources "
          f"({counts['hand']} hand entries not compiled), {counts['pointers']} pointer "
          f"arguments checked for const, {counts['arrays']} integer/logical arrays of "
          f"generated interface functions checked for direction")
    print(f"dataflow: {len(found)} differences, {len(explained)} explained by "
          f"{len(used)} entries of DATAFLOW_EXPLAINED")
    for line in unexplained:
        print("UNEXPLAINED", line)
    for key in stale:
        print("STALE explanation, no such difference:", key)
    return 1 if unexplained or stale else 0


def main(argv=None):
    p = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    p.add_argument("--sources", default="/opt/vorn/lapack-src")
    p.add_argument("--catalogue", default=os.path.join(REPO, "catalogue", "routines.cat"))
    p.add_argument("--groups", default=os.path.join(REPO, "catalogue", "routine_groups.txt"))
    p.add_argument("--cache-dir", required=True)
    p.add_argument("--compiler", default="gfortran")
    p.add_argument("--jobs", type=int, default=2)
    p.add_argument("--show", help="print the derived flow of one routine")
    args = p.parse_args(argv)
    by_path = load_units(args.sources, args.cache_dir, args.compiler, args.jobs)
    summary = derive(by_path)
    if args.show:
        for (path, name), s in summary.items():
            if name == args.show.upper():
                u = by_path[path][name]
                for a in u.args:
                    r, w = s[a]
                    print(f"{path} {a}: {'r' if r else '-'}{'w' if w else '-'}")
        return 0
    found, counts = compare(args.catalogue, args.groups, by_path, summary)
    return check(found, counts)


if __name__ == "__main__":
    sys.exit(main())
