"""Reads catalogue/routines.cat: one routine per line,
`NAME GROUP RESULT ARG... @SOURCE`, each ARG `NAME:KIND:INTENT[:DIM]`."""
from __future__ import annotations

from dataclasses import dataclass, field
from pathlib import Path

SCALAR_KINDS = {"i", "l", "ch", "str", "s", "d", "c", "z", "fn", "hc", "hz"}
RESULT_KINDS = {"sub", "i", "l", "s", "d", "c", "z", "ch"}
INTENTS = {"in", "out", "io"}


@dataclass(frozen=True)
class Arg:
    name: str
    kind: str  # scalar kind, with "[]" for arrays
    intent: str
    dim: str | None = None

    @property
    def is_array(self) -> bool:
        return self.kind.endswith("[]")

    @property
    def base(self) -> str:
        return self.kind[:-2] if self.is_array else self.kind

    @property
    def is_integer_scalar(self) -> bool:
        """Integers and logicals change width; everything else passes as is."""
        return self.kind in ("i", "l")

    @property
    def is_integer_array(self) -> bool:
        return self.kind in ("i[]", "l[]")

    @property
    def is_character(self) -> bool:
        return self.kind in ("ch", "str")

    @property
    def written(self) -> bool:
        return self.intent in ("out", "io")


@dataclass(frozen=True)
class Routine:
    name: str
    group: str
    result: str
    args: tuple[Arg, ...]
    source: str = ""

    @property
    def lower(self) -> str:
        return self.name.lower()

    @property
    def is_blas(self) -> bool:
        return self.group.startswith("B")

    def arg(self, name: str) -> Arg | None:
        return next((a for a in self.args if a.name == name), None)

    @property
    def has_integer_arrays(self) -> bool:
        return any(a.is_integer_array for a in self.args)


def split_top(text: str) -> list[str]:
    """A DIM or length expression split at its top-level commas (one part a
    dimension)."""
    parts, depth, cur = [], 0, ""
    for ch in text:
        if ch == "," and depth == 0:
            parts.append(cur)
            cur = ""
            continue
        depth += (ch == "(") - (ch == ")")
        cur += ch
    return parts + [cur]


def parse_line(line: str) -> Routine:
    fields = line.split()
    if len(fields) < 3:
        raise ValueError(f"too few fields: {line!r}")
    name, group, result = fields[:3]
    if result not in RESULT_KINDS:
        raise ValueError(f"{name}: unknown result kind {result!r}")
    args, source = [], ""
    for tok in fields[3:]:
        if tok.startswith("@"):
            source = tok[1:]
            continue
        parts = tok.split(":", 3)
        if len(parts) < 3:
            raise ValueError(f"{name}: bad argument {tok!r}")
        aname, kind, intent = parts[:3]
        dim = parts[3] if len(parts) == 4 else None
        base = kind[:-2] if kind.endswith("[]") else kind
        if base not in SCALAR_KINDS or intent not in INTENTS:
            raise ValueError(f"{name}: bad argument {tok!r}")
        args.append(Arg(aname, kind, intent, dim))
    return Routine(name, group, result, tuple(args), source)


def load(path: Path) -> list[Routine]:
    routines = []
    for raw in Path(path).read_text().splitlines():
        line = raw.strip()
        if line and not line.startswith("#"):
            routines.append(parse_line(line))
    return routines


def load_groups(path: Path) -> dict[str, str]:
    """The routine set, name -> group, from catalogue/routine_groups.txt."""
    groups = {}
    for raw in Path(path).read_text().splitlines():
        line = raw.strip()
        if line and not line.startswith("#"):
            group, name = line.split()
            groups[name] = group
    return groups
