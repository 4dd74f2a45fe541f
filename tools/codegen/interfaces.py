"""Interface functions of the regular routines: frame A for level-1 BLAS,
frames C and D for LAPACK routines, with scratch arrays for the integer and
logical arrays of the LAPACK routines."""
import re

from catalogue import Arg, Routine, split_top
from cxx_types import (CALLER_RESULT, LIBRARY_RESULT, caller_type, library_type,
                    local_name, param_name)
import overrides
from header import HAND_PROTOTYPES


def uses_blas_frame(r: Routine) -> bool:
    return r.is_blas or r.name in overrides.BLAS_FRAME_WITH_LAPACK_SPELLINGS


def library_entry(r: Routine) -> str:
    if uses_blas_frame(r):
        return f"mkl_blas_{r.lower}"
    if r.name in overrides.PS_ENTRY_WITHOUT_HOOKS:
        return f"mkl_lapack_ps_{r.lower}"
    return f"mkl_lapack_{r.lower}"


# The computational library's entries that the hand-written frame calls
# beside the routines' own.
SERVICE_ENTRIES = (
    "mkl_serv_set_xerbla_interface", "mkl_serv_set_progress_interface", "mkl_serv_default_xerbla",
    "mkl_serv_default_progress", "mkl_serv_allocate", "mkl_serv_deallocate", "mkl_serv_malloc",
    "mkl_serv_free", "mkl_serv_lsame", "mkl_serv_second", "mkl_serv_dsecnd",
    "mkl_spblas_lp64_mkl_dcsrmultcsr", "mkl_spblas_lp64_mkl_zcsrmultcsr")
COMPUTATIONAL_LIBRARY_DLL = "mkl_intel_thread.dll"


def imported_routines(routines: list[Routine]) -> list[Routine]:
    """The routines whose own entry the interface functions call."""
    return [r for r in routines if r.name not in overrides.SERVICE_BACKED]


def import_definitions(routines: list[Routine]) -> str:
    """Module definition of the computational library's DLL, from which the
    build makes the import library: no MKL binary is needed to link."""
    names = sorted({library_entry(r) for r in imported_routines(routines)} | set(SERVICE_ENTRIES))
    return "\n".join([f"LIBRARY {COMPUTATIONAL_LIBRARY_DLL}", "EXPORTS"] + [f"    {n}" for n in names]) + "\n"


def supported(r: Routine) -> bool:
    """Whether this generator builds the routine's interface function."""
    if r.name in HAND_PROTOTYPES:
        return False
    if not r.is_blas and r.has_integer_arrays:
        return r.group not in overrides.GROUPS_NOT_YET_BUILT
    if any(a.base == "fn" for a in r.args):
        return False
    if r.result == "ch":
        return False
    if r.group in overrides.GROUPS_NOT_YET_BUILT:
        return False
    if r.is_blas:
        return r.group in ("B1", "B2", "B3", "B4")
    return not r.has_integer_arrays


def implemented(routines: list[Routine]) -> list[Routine]:
    """The routines the library exports: generated or written by hand."""
    return [r for r in routines if supported(r) or r.name in overrides.hand_written()]


def character_args(r: Routine) -> list[Arg]:
    # LAPACK entries take one length per character argument; of the BLAS
    # only level 2 hands lengths on (the caller's, read from the positions
    # after the listed arguments); level 3 takes none.
    if r.group == "B3" or not uses_blas_frame(r):
        return [a for a in r.args if a.is_character]
    return []


def has_checker(r: Routine) -> bool:
    return r.group in ("B3", "B4")


def library_declaration(r: Routine) -> str:
    params = [library_type(a) for a in r.args] + ["int"] * len(character_args(r))
    return f'{LIBRARY_RESULT[r.result]} {library_entry(r)}({", ".join(params)});'


def length_params(r: Routine) -> list[str]:
    """The level-2/3 interface functions take each letter's length after the
    listed arguments."""
    return [f"{param_name(a)}_len" for a in character_args(r)] if r.group == "B3" else []


def precheck_call(r: Routine) -> str:
    """The call of the routine's check, each examined argument with its
    1-based position in the routine's own argument list."""
    check, names = overrides.precheck_call(r.name)
    position = {a.name: i + 1 for i, a in enumerate(r.args)}
    items = []
    for n in names:
        a = r.arg(n)
        value = param_name(a) if a.is_character else local_name(a)
        items.append(f"{{{value}, {position[n]}}}")
    # The checks leave INFO's cell alone when they pass: it must start at 0.
    if _scalar_treatment(r, r.arg("INFO")) != "zeroed" or _treatment(r, r.arg("INFO")) != "zeroed":
        raise ValueError(f"{r.name}: a checked routine's INFO must start from a zeroed cell")
    info = local_name(r.arg("INFO"))
    return f'vorn::checks::{check}("{r.name}", &{info}, {", ".join(items)})'


def _treatment(r: Routine, a: Arg) -> str:
    """How an integer scalar crosses: in, out (widened, written back),
    zeroed (fresh cell, written back)."""
    special = overrides.INTEGER_SCALAR_TREATMENT.get(r.name, {})
    if a.name in special:
        return special[a.name]
    if a.name == "INFO" and a.intent == "out":
        return "zeroed"
    return "out" if a.written else "in"


def interface_function(r: Routine) -> str:
    if r.group == "B2":
        return sparse_interface_function(r)
    if r.name in overrides.hand_written():
        return f"// vorn_if_{r.lower} is written by hand in {overrides.hand_written_file(r.name)}."
    if not r.is_blas and r.has_integer_arrays:
        return array_interface_function(r)
    params = ", ".join([f"{caller_type(a)} {param_name(a)}" for a in r.args]
                       + [f"int {p}" for p in length_params(r)])
    lines = [f'extern "C" VORN_HIDDEN {CALLER_RESULT[r.result]} vorn_if_{r.lower}({params}) {{']
    call_args, write_back = [], []
    for a in r.args:
        if a.is_integer_scalar:
            how = _treatment(r, a)
            init = "0" if how == "zeroed" else f"vorn::widen({param_name(a)})"
            lines.append(f"  vorn::i64 {local_name(a)} = {init};")
            call_args.append(f"&{local_name(a)}")
            if how != "in":
                write_back.append(f"  vorn::narrow({param_name(a)}, {local_name(a)});")
        else:
            call_args.append(param_name(a))
    if r.group == "B3":
        call_args += length_params(r)
    else:
        call_args += ["vorn::kCharLength"] * len(character_args(r))
    call = f'{library_entry(r)}({", ".join(call_args)})'
    has_result = r.result not in ("sub", "c", "z")
    if has_result:
        lines.append(f"  {LIBRARY_RESULT[r.result]} result = {{}};")
        call = f"result = {call}"
    guarded = r.name in overrides.PRECHECKED or has_checker(r)
    indent = "  "
    if has_checker(r):
        lines.append(f'  if (vorn::blas::check_{r.lower}({", ".join(call_args)}) == 0) {{')
        indent = "    "
    elif guarded:
        lines.append(f"  if ({precheck_call(r)} == 0) {{")
        indent = "    "
    if not uses_blas_frame(r) and r.name not in overrides.PS_ENTRY_WITHOUT_HOOKS:
        lines.append(f"{indent}vorn::install_hooks();")
    lines.append(f"{indent}{call};")
    if guarded:
        lines.append("  }")
    lines += write_back
    if has_result:
        lines.append("  return vorn::narrowed(result);" if r.result in ("i", "l") else "  return result;")
    lines.append("}")
    return "\n".join(lines)


def sparse_interface_function(r: Routine) -> str:
    """Sparse level 1: the index vector is copied into a scratch array of
    max(1, nz) elements, exactly nz of them filled, never copied back."""
    params = ", ".join(f"{caller_type(a)} {param_name(a)}" for a in r.args)
    result = CALLER_RESULT[r.result]
    nz, indx = r.arg("NZ"), r.arg("INDX")
    lines = [f'extern "C" VORN_HIDDEN {result} vorn_if_{r.lower}({params}) {{',
             f"  vorn::i64 {local_name(nz)} = vorn::widen({param_name(nz)});",
             "  vorn::ScratchSet<1> scratch;",
             f"  vorn::i64* {local_name(indx)} = scratch.obtain({local_name(nz)});",
             f"  if ({local_name(indx)} == nullptr) {{",
             f'    vorn::scratch_failure(scratch, "{r.name}", nullptr);',
             "    return 0.0;" if r.result in ("s", "d") else "    return;",
             "  }",
             f"  vorn::copy_exactly({local_name(indx)}, {param_name(indx)}, {local_name(nz)});"]
    substitute = {nz.name: f"&{local_name(nz)}", indx.name: local_name(indx)}
    call_args = [substitute.get(a.name, param_name(a)) for a in r.args]
    call = f'{library_entry(r)}({", ".join(call_args)})'
    if r.result in ("s", "d"):
        lines += [f"  const {result} value = {call};", "  return value;"]
    else:
        lines.append(f"  {call};")
    lines.append("}")
    return "\n".join(lines)


# ---------------------------------------------------------------------------
# LAPACK routines with integer or logical arrays.

class Notation:
    """Translates the catalogue's DIM texts and the override tables'
    conditions (Fortran-like, see overrides.py) into C++ over the interface
    function's locals."""

    _TOKEN = re.compile(r"\s*(?:(\d+)|([A-Z][A-Z0-9_]*)|('[A-Za-z]')|(\*\*|/=|<=|>=|[-+*/(),=<>&|!]))")
    _FUNCTIONS = {"MAX": "vorn::lapack::max_of({{{}}})", "MIN": "vorn::lapack::min_of({{{}}})",
                  "ABS": "vorn::lapack::abs_of({})", "LG": "vorn::lapack::ceil_log2({})",
                  "DEPTH": "vorn::lapack::lapack_depth({})", "NODE": "vorn::lapack::merge_node({})"}
    _RELATIONS = {"=": "==", "/=": "!=", "<": "<", ">": ">", "<=": "<=", ">=": ">="}

    def __init__(self, r: Routine):
        self.r = r
        self.derived = overrides.keyed(overrides.DERIVED_SIZES, r.name) or {}
        self.uses_query = False

    def length(self, text: str) -> str:
        """An element count; a multi-dimensional DIM is the product."""
        parts = split_top(text)
        if len(parts) == 1:
            return self.translate(text)
        return " * ".join(f"({self.translate(part)})" for part in parts)

    def translate(self, text: str) -> str:
        self.tokens, self.pos = self._tokenize(text), 0
        out = self._or()
        if self.pos != len(self.tokens):
            raise ValueError(f"{self.r.name}: cannot read {text!r}")
        return out

    def _tokenize(self, text: str) -> list[str]:
        tokens, i = [], 0
        text = text.strip()
        while i < len(text):
            m = self._TOKEN.match(text, i)
            if not m or m.end() == i:
                raise ValueError(f"{self.r.name}: bad notation {text!r}")
            tokens.append(next(g for g in m.groups() if g is not None))
            i = m.end()
        return tokens

    def _peek(self) -> str | None:
        return self.tokens[self.pos] if self.pos < len(self.tokens) else None

    def _take(self, expected: str | None = None) -> str:
        t = self._peek()
        if t is None or (expected is not None and t != expected):
            raise ValueError(f"{self.r.name}: expected {expected!r} in {' '.join(self.tokens)}")
        self.pos += 1
        return t

    def _or(self) -> str:
        parts = [self._and()]
        while self._peek() == "|":
            self._take()
            parts.append(self._and())
        if "true" in parts:
            return "true"
        parts = [q for q in parts if q != "false"] or ["false"]
        if len(parts) == 1:
            return parts[0]
        return " || ".join(f"({q})" if " && " in q and not _enclosed(q) else q for q in parts)

    def _and(self) -> str:
        parts = [self._not()]
        while self._peek() == "&":
            self._take()
            parts.append(self._not())
        if "false" in parts:
            return "false"
        parts = [q for q in parts if q != "true"] or ["true"]
        return " && ".join(f"({q})" if " || " in q and not _enclosed(q) else q for q in parts)

    def _not(self) -> str:
        if self._peek() == "!":
            self._take()
            operand = self._not()
            return {"false": "true", "true": "false"}.get(operand, f"!{operand}")
        return self._relation()

    def _relation(self) -> str:
        start = self.pos
        t = self._peek()
        arg = self.r.arg(t) if t else None
        if arg is not None and arg.is_character:
            self._take()
            rel = self._take()
            letter = self._take()
            if rel not in ("=", "/=") or not letter.startswith("'"):
                raise ValueError(f"{self.r.name}: option test {' '.join(self.tokens[start:])}")
            test = f"vorn::lapack::option({param_name(arg)}, {letter.upper()})"
            return test if rel == "=" else f"!{test}"
        left = self._sum()
        if self._peek() in self._RELATIONS:
            rel = self._RELATIONS[self._take()]
            return f"({left} {rel} {self._sum()})"
        return left

    def _sum(self) -> str:
        out = self._term()
        while self._peek() in ("+", "-"):
            op = self._take()
            out = f"{out} {op} {self._term()}"
        return out

    def _term(self) -> str:
        out = self._unary()
        while self._peek() in ("*", "/"):
            op = self._take()
            out = f"{out} {op} {self._unary()}"
        return out

    def _unary(self) -> str:
        if self._peek() == "-":
            self._take()
            return f"-{self._unary()}"
        base = self._primary()
        if self._peek() == "**":
            self._take()
            return f"vorn::lapack::power({base}, {self._unary()})"
        return base

    def _primary(self) -> str:
        t = self._take()
        if t == "(":
            inner = self._or()
            self._take(")")
            return f"({inner})"
        if t.isdigit():
            return t
        if t == "TREE" and self._peek() == "(":
            # TREE(POINTERS, TLVLS, CURLVL, CURPBM, N): read from the pointer
            # array's scratch copy, which is obtained and filled before.
            self._take("(")
            pointers = self.r.arg(self._take())
            if pointers is None or not pointers.is_integer_array:
                raise ValueError(f"{self.r.name}: TREE needs an integer array first")
            args = [local_name(pointers)]
            while self._peek() == ",":
                self._take()
                args.append(self._sum())
            self._take(")")
            return f"vorn::lapack::tree_extent({', '.join(args)})"
        if t in self._FUNCTIONS and self._peek() == "(":
            self._take("(")
            args = [self._sum()]
            while self._peek() == ",":
                self._take()
                args.append(self._sum())
            self._take(")")
            return self._FUNCTIONS[t].format(", ".join(args))
        if t == "QUERY":
            # Routines without a length argument never query.
            if not query_lengths(self.r):
                return "false"
            self.uses_query = True
            return "query"
        if t in self.derived:
            return f"({Notation(self.r).translate(self.derived[t])})"
        a = self.r.arg(t)
        if a is not None and a.is_integer_scalar:
            return local_name(a)
        raise ValueError(f"{self.r.name}: {t} is not an integer argument")


def _enclosed(expr: str) -> bool:
    """Whether the whole expression sits inside one pair of parentheses."""
    if not expr.startswith("(") or not expr.endswith(")"):
        return False
    depth = 0
    for i, ch in enumerate(expr):
        depth += (ch == "(") - (ch == ")")
        if depth == 0 and i < len(expr) - 1:
            return False
    return True


def _grouped(condition: str) -> str:
    return condition if " || " not in condition or _enclosed(condition) else f"({condition})"


class ArrayPlan:
    """How one integer or logical array crosses: its scratch length, when it
    is obtained, filled and copied back, as C++ expressions."""

    def __init__(self, r: Routine, a: Arg, notation: Notation):
        self.arg = a
        rule = _merged_rule(r, a)
        self.length = notation.length(rule.length or a.dim)
        taken = notation.translate(rule.taken) if rule.taken else "true"
        if taken == "false":
            raise ValueError(f"{r.name}: {a.name} is never taken")
        self.taken = None if taken == "true" else taken
        self.copy_in = self._condition(notation, rule.copy_in)
        self.copy_back = self._condition(notation, rule.copy_back)
        self.back_length = notation.length(rule.back_length) if rule.back_length else None

    @staticmethod
    def _condition(notation: Notation, value) -> str | bool:
        return notation.translate(value) if isinstance(value, str) else bool(value)

    @property
    def local(self) -> str:
        return local_name(self.arg)

    @property
    def param(self) -> str:
        return param_name(self.arg)


def _merged_rule(r: Routine, a: Arg) -> overrides.ArrayRule:
    """The catalogue's documentation, overlaid by every table that speaks of
    this array, most general first."""
    if a.dim in (None, "?") and not overrides.keyed(overrides.ARRAY_LENGTHS, r.name, a.name):
        raise ValueError(f"{r.name}: no length for {a.name}")
    workspace = a.name in overrides.WORKSPACE_ARRAYS
    fields = {"length": a.dim,
              "copy_in": a.intent in ("in", "io") and not workspace,
              "copy_back": a.intent in ("out", "io") and not workspace}
    layers = [overrides.ArrayRule(length=overrides.keyed(overrides.ARRAY_LENGTHS, r.name, a.name))]
    if a.name == "IWORK" and "LIWORK" in (a.dim or ""):
        layers.append(overrides.LENGTH_QUERY_IWORK)
    if r.arg("FACT") is not None and a.name in overrides.FACT_CONDITIONED:
        layers.append(overrides.FACT_CONDITIONED[a.name])
    if overrides.keyed(overrides.PIVOTS_SKIPPED_ON_QUERY, r.name) == a.name:
        layers.append(overrides.ArrayRule(taken="!QUERY"))
    if a.name == "ISUPPZ" and overrides.keyed(overrides.ISUPPZ_ROUTINES, r.name):
        family = r.name if r.name in overrides.ISUPPZ_ROUTINES else r.name[1:]
        layers.append(overrides.isuppz_rule(family))
    if r.name[1:] in overrides.IFAIL_DRIVERS and a.name in overrides.IFAIL_RULES:
        layers.append(overrides.IFAIL_RULES[a.name])
    for table in (overrides.FIXED_WORKSPACE, overrides.LOGICAL_ARRAYS, overrides.ARRAY_RULES):
        rule = overrides.keyed(table, r.name, a.name)
        if rule is not None:
            layers.append(rule)
    for layer in layers:
        for key, value in vars(layer).items():
            if value is not None:
                fields[key] = value
    return overrides.ArrayRule(**fields)


def query_lengths(r: Routine) -> list[Arg]:
    return [a for a in map(r.arg, overrides.QUERY_LENGTHS) if a is not None and a.is_integer_scalar]


def _scalar_treatment(r: Routine, a: Arg) -> str:
    """Array routines: documented outputs start from a zeroed cell, so an
    output the caller left unset is never read."""
    special = overrides.INTEGER_SCALAR_TREATMENT.get(r.name, {})
    if a.name in special:
        return special[a.name]
    return {"in": "in", "out": "zeroed", "io": "out"}[a.intent]


def _obtain_lines(r: Routine, p: ArrayPlan) -> list[str]:
    """Obtain one scratch array (under its condition), fail cleanly, fill it."""
    info = r.arg("INFO")
    failure_info = param_name(info) if info is not None else "nullptr"
    lines = [f"  const vorn::i64 {p.param}_length = {p.length};"]
    indent = "  "
    if p.taken:
        lines += [f"  const bool {p.param}_taken = {p.taken};",
                  f"  vorn::i64* {p.local} = nullptr;",
                  f"  if ({p.param}_taken) {{",
                  f"    {p.local} = scratch.obtain({p.param}_length);"]
        indent = "    "
    else:
        lines.append(f"  vorn::i64* const {p.local} = scratch.obtain({p.param}_length);")
    lines += [f"{indent}if ({p.local} == nullptr) {{",
              f'{indent}  vorn::scratch_failure(scratch, "{r.name}", {failure_info});',
              f"{indent}  return;",
              f"{indent}}}"]
    if p.copy_in:
        copy = f"vorn::copy_in({p.local}, {p.param}, {p.param}_length);"
        lines.append(f"{indent}if ({p.copy_in}) {copy}" if isinstance(p.copy_in, str) else f"{indent}{copy}")
    if p.taken:
        lines.append("  }")
    return lines


def _copy_back_line(p: ArrayPlan) -> str:
    copy = f"vorn::copy_back({p.param}, {p.local}, {p.back_length or p.param + '_length'});"
    conditions = [c for c in (f"{p.param}_taken" if p.taken else None,
                              _grouped(p.copy_back) if isinstance(p.copy_back, str) else None) if c]
    return f"  if ({' && '.join(conditions)}) {copy}" if conditions else f"  {copy}"


def array_interface_function(r: Routine) -> str:
    """Frame C (or D) with scratch arrays: widen, obtain and fill the arrays
    in argument order, pre-check, call, narrow INFO and the outputs back;
    the scratch set releases the arrays in the order obtained."""
    notation = Notation(r)
    plans = [ArrayPlan(r, a, notation) for a in r.args if a.is_integer_array]
    untouched = {p.arg.name for p in plans if not p.copy_in and not p.copy_back}

    def declared(a: Arg) -> str:
        # A pure workspace never touches the caller's array.
        return f"{caller_type(a)} /*{param_name(a)}*/" if a.name in untouched else f"{caller_type(a)} {param_name(a)}"

    lines = [f'extern "C" VORN_HIDDEN void vorn_if_{r.lower}({", ".join(map(declared, r.args))}) {{']
    write_back = []
    has_range = r.arg("RANGE") is not None
    for a in r.args:
        if not a.is_integer_scalar:
            continue
        how = _scalar_treatment(r, a)
        init = "0" if how == "zeroed" else f"vorn::widen({param_name(a)})"
        if has_range and a.name in overrides.OPTIONAL_SCALARS and how == "in":
            init = f"{notation.translate(overrides.OPTIONAL_SCALARS[a.name])} ? {init} : 0"
        lines.append(f"  vorn::i64 {local_name(a)} = {init};")
        if how != "in":
            write_back.append(f"  vorn::narrow({param_name(a)}, {local_name(a)});")

    lengths = query_lengths(r)
    convert = len(lengths) > 1
    if convert or notation.uses_query:
        lines.append("  const bool query = " + " || ".join(f"{local_name(a)} == -1" for a in lengths) + ";")
    if convert:
        # The library always sees a full query, never a mixed one.
        lines.append("  if (query) {")
        lines += [f"    {local_name(a)} = -1;" for a in lengths]
        lines.append("  }")

    lines.append(f"  vorn::ScratchSet<{len(plans)}> scratch;")
    for p in plans:
        lines += _obtain_lines(r, p)

    call_args = [f"&{local_name(a)}" if a.is_integer_scalar else local_name(a) if a.is_integer_array
                 else param_name(a) for a in r.args]
    call_args += ["vorn::kCharLength"] * len(character_args(r))
    call = [f'{library_entry(r)}({", ".join(call_args)});']
    if r.name not in overrides.PS_ENTRY_WITHOUT_HOOKS:
        call.insert(0, "vorn::install_hooks();")
    if r.name in overrides.PRECHECKED:
        lines += [f"  if ({precheck_call(r)} == 0) {{", *(f"    {c}" for c in call), "  }"]
    else:
        lines += [f"  {c}" for c in call]
    lines += write_back
    lines += [_copy_back_line(p) for p in plans if p.copy_back]
    lines.append("}")
    return "\n".join(lines)
