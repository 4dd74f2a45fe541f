"""Reading the reference BLAS/LAPACK Fortran sources.

Splits a source file into program units (SUBROUTINE / FUNCTION), joins
continuation lines into statements, and keeps the doxygen comment block
that precedes each unit, which is where LAPACK documents intents and array
dimensions.  Only what the catalogue needs is understood: unit headers,
type declarations, DIMENSION and EXTERNAL statements.
"""

import re

FIXED_COMMENT_CHARS = "Cc*!"


class SourceError(Exception):
    pass


class Unit:
    """One SUBROUTINE or FUNCTION of a source file."""

    def __init__(self, path, name, prefix, args, result_var, statements, doc):
        self.path = path              # relative to the source root
        self.name = name              # upper case
        self.prefix = prefix          # text before SUBROUTINE/FUNCTION, upper case
        self.is_function = None       # set by the parser
        self.args = args              # argument names, upper case, in order
        self.result_var = result_var  # RESULT(...) name for functions, else None
        self.statements = statements  # statements of the body, upper case
        self.doc = doc                # doxygen lines (text after '*>' / '!>')


def _strip_bang_comment(text):
    """Drop a trailing '!' comment that is not inside a character literal."""
    quote = None
    for i, ch in enumerate(text):
        if quote:
            if ch == quote:
                quote = None
        elif ch in "'\"":
            quote = ch
        elif ch == "!":
            return text[:i]
    return text


def _doc_text(line, free_form):
    """Return the doxygen text of a comment line, or None."""
    stripped = line.lstrip() if free_form else line
    if stripped[:2] in ("*>", "!>") or (not free_form and stripped[:2] in ("c>", "C>")):
        return stripped[2:].rstrip("\n")
    return None


def _fixed_statements(lines):
    """Yield (line_index, statement) for fixed-form source (columns 1-72)."""
    current = None
    start = 0
    for idx, raw in enumerate(lines):
        line = raw.rstrip("\n").expandtabs(6)
        if not line.strip() or line[0] in FIXED_COMMENT_CHARS or line[0] == "#":
            continue
        if line.lstrip().startswith("!"):
            continue
        body = line[:72]
        if len(body) > 5 and body[5] not in " 0" and not body[:5].strip():
            if current is None:
                raise SourceError("continuation line without a statement at line %d" % (idx + 1))
            current += _strip_bang_comment(body[6:])
            continue
        if current is not None:
            yield start, current
        current = _strip_bang_comment(body[6:]) if len(body) > 6 else ""
        start = idx
    if current is not None:
        yield start, current


def _free_statements(lines):
    """Yield (line_index, statement) for free-form source."""
    current = None
    start = 0
    for idx, raw in enumerate(lines):
        line = raw.rstrip("\n")
        if line.lstrip().startswith("#"):
            continue
        text = _strip_bang_comment(line).strip()
        if not text:
            continue
        if current is not None:
            # previous line ended with '&': this one continues it
            if text.startswith("&"):
                text = text[1:]
            current += " " + text
        else:
            current = text
            start = idx
        if current.endswith("&"):
            current = current[:-1]
            continue
        for part in _split_top_level(current, ";"):
            if part.strip():
                yield start, part.strip()
        current = None
    if current is not None:
        yield start, current


def _split_top_level(text, sep):
    """Split on sep outside parentheses and character literals."""
    parts, depth, quote, buf = [], 0, None, []
    for ch in text:
        if quote:
            buf.append(ch)
            if ch == quote:
                quote = None
            continue
        if ch in "'\"":
            quote = ch
        elif ch == "(":
            depth += 1
        elif ch == ")":
            depth -= 1
        elif ch == sep and depth == 0:
            parts.append("".join(buf))
            buf = []
            continue
        buf.append(ch)
    parts.append("".join(buf))
    return parts


split_top_level = _split_top_level

# Type that may precede FUNCTION in a header (or nothing).
_TYPE_PREFIX = (
    r"(?:DOUBLE\s*PRECISION|DOUBLE\s*COMPLEX|REAL|INTEGER|LOGICAL|COMPLEX|CHARACTER)"
    r"(?:\s*\*\s*(?:\d+|\(\s*\*\s*\))|\s*\([^()]*\))?"
)
_HEADER = re.compile(
    r"^(?P<prefix>(?:(?:RECURSIVE|PURE|ELEMENTAL)\s+)*(?:" + _TYPE_PREFIX + r"\s*)?"
    r"(?:(?:RECURSIVE|PURE|ELEMENTAL)\s+)*)"
    r"(?P<kind>SUBROUTINE|FUNCTION)\s+(?P<name>[A-Z_][A-Z0-9_]*)\s*"
    r"(?:\((?P<args>[^()]*)\))?\s*(?:RESULT\s*\(\s*(?P<result>\w+)\s*\))?\s*$"
)
_END = re.compile(r"^END\s*(?:(?:SUBROUTINE|FUNCTION|PROGRAM)\b\s*\w*)?\s*$")
_INTERFACE = re.compile(r"^(?:ABSTRACT\s+)?INTERFACE\b")
_END_INTERFACE = re.compile(r"^END\s*INTERFACE\b")


def parse_file(root, relpath):
    """Return the program units of one source file, in file order."""
    with open(f"{root}/{relpath}", encoding="latin-1") as handle:
        lines = handle.readlines()
    free_form = relpath.lower().endswith(".f90")
    stmts = list(_free_statements(lines) if free_form else _fixed_statements(lines))

    units = []
    doc_start = 0          # first line that may document the next unit
    open_unit = None
    interface_depth = 0
    for line_idx, stmt in stmts:
        upper = stmt.strip().upper()
        if open_unit is not None:
            if _INTERFACE.match(upper):
                interface_depth += 1
            elif _END_INTERFACE.match(upper):
                interface_depth -= 1
            elif interface_depth == 0 and _END.match(upper):
                units.append(open_unit)
                open_unit = None
                doc_start = line_idx + 1
                continue
            if interface_depth == 0:
                open_unit.statements.append(upper)
            continue
        m = _HEADER.match(upper)
        if not m:
            continue
        doc = []
        for raw in lines[doc_start:line_idx]:
            text = _doc_text(raw, free_form)
            if text is not None:
                doc.append(text)
        args = [a.strip() for a in (m.group("args") or "").split(",") if a.strip()]
        unit = Unit(relpath, m.group("name"), " ".join(m.group("prefix").split()),
                    args, m.group("result"), [], doc)
        unit.is_function = m.group("kind") == "FUNCTION"
        open_unit = unit
        interface_depth = 0
    if open_unit is not None:
        raise SourceError(f"{relpath}: unit {open_unit.name} has no END statement")
    return units
