"""Interface functions of the regular routines: frame A for level-1 BLAS,
frames C and D for LAPACK routines whose integers are all scalars."""
from catalogue import Arg, Routine
from cxx_types import (CALLER_RESULT, LIBRARY_RESULT, caller_type, library_type,
                    local_name, param_name)
import overrides


def uses_blas_frame(r: Routine) -> bool:
    return r.is_blas or r.name in overrides.BLAS_FRAME_WITH_LAPACK_SPELLINGS


def library_entry(r: Routine) -> str:
    if uses_blas_frame(r):
        return f"mkl_blas_{r.lower}"
    if r.name in overrides.PS_ENTRY_WITHOUT_HOOKS:
        return f"mkl_lapack_ps_{r.lower}"
    return f"mkl_lapack_{r.lower}"


def supported(r: Routine) -> bool:
    """Whether this generator builds the routine's interface function."""
    if r.name in overrides.hand_written():
        return False
    if any(a.base == "fn" for a in r.args):
        return False
    if r.result == "ch":
        return False
    if r.group in overrides.GROUPS_NOT_YET_BUILT:
        return False
    if r.is_blas:
        return r.group in ("B1", "B2", "B3", "B4")
    return not r.has_integer_arrays


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


def checker_declaration(r: Routine) -> str:
    """Level 2 and 3 checkers see exactly the list the library entry gets."""
    params = [library_type(a) for a in r.args] + ["int"] * len(character_args(r))
    return f'int check_{r.lower}({", ".join(params)});'


def _length_params(r: Routine) -> list[str]:
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
    params = ", ".join([f"{caller_type(a)} {param_name(a)}" for a in r.args]
                       + [f"int {p}" for p in _length_params(r)])
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
        call_args += _length_params(r)
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
