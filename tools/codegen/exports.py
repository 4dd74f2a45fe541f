"""The export table: every spelling of every implemented routine, and which
spellings share one entry. Emitted as ELF assembly plus a version script, or
as COFF assembly plus a Windows module-definition file."""
from catalogue import Routine
import overrides

PREFIX = "VORN_instable_"


def entries(r: Routine) -> list[tuple[list[str], str]]:
    """(spellings sharing one address, interface function it ends in)."""
    target = f"vorn_if_{r.lower}"
    upper_target = overrides.UPPER_ENTRY_TARGET.get(r.name, target)
    up, lo = PREFIX + r.name, PREFIX + r.lower
    if r.is_blas:
        return [([up], upper_target), ([lo], target)]
    if r.name in overrides.LOWER_UNDERSCORE_SHARES_LOWER:
        return [([up, up + "_"], upper_target), ([lo, lo + "_"], target)]
    return [([up, up + "_", lo + "_"], upper_target), ([lo], target)]


def spellings(routines: list[Routine]) -> list[str]:
    return [name for r in routines for names, _ in entries(r) for name in names]


def elf_assembly(routines: list[Routine]) -> str:
    # Each entry is a bare tail jump: every argument register and stack slot
    # reaches the interface function exactly as the caller left it.
    out = ["# Generated: export entries of the plain family.", "\t.text"]
    for r in routines:
        for names, target in entries(r):
            out.append("\t.p2align 4")
            for n in names:
                out += [f"\t.globl {n}", f"\t.type {n}, @function"]
            out += [f"{n}:" for n in names]
            out.append(f"\tjmp {target}")
            out += [f"\t.size {n}, .-{names[0]}" for n in names]
    out.append('\t.section .note.GNU-stack,"",@progbits')
    return "\n".join(out) + "\n"


def version_script(names: list[str]) -> str:
    body = "\n".join(f"    {n};" for n in names)
    return "{\n  global:\n" + body + "\n  local: *;\n};\n"


def arity(r: Routine) -> int:
    """Arguments an entry passes on: the listed ones (a complex function's
    result address among them), or the hand prototype's, which include the
    explicit character lengths of the services."""
    from header import HAND_PROTOTYPES  # header builds on this module
    if r.name in HAND_PROTOTYPES:
        params = HAND_PROTOTYPES[r.name].split("(", 1)[1].rsplit(")", 1)[0].strip()
        return 0 if params == "void" else params.count(",") + 1
    return len(r.args)


def _stub(r: Routine, i: int) -> str:
    return f"vorn_entry{i + 1}_{r.lower}"


# Win64 passes four arguments in registers and the rest on the stack above a
# 32-byte home area that belongs to the callee.
WIN64_REGISTER_ARGS = 4
WIN64_HOME_AREA = 32


def win64_frame_bytes(n: int) -> int:
    """The entry's own frame: home area plus outgoing slots, sized so that
    the stack is 16-byte aligned again at the call."""
    size = WIN64_HOME_AREA + 8 * (n - WIN64_REGISTER_ARGS)
    return size if size % 16 == 8 else size + 8


def coff_assembly(routines: list[Routine]) -> str:
    # Up to four arguments travel in registers, so a bare tail jump passes
    # them on. Beyond that the fifth and later arguments are copied into the
    # entry's own outgoing area and the interface function is called, with
    # unwind data so that the entry is an ordinary frame to the system.
    out = ["# Generated: export entries of the plain family.", "\t.text"]
    for r in routines:
        n = arity(r)
        for i, (_, target) in enumerate(entries(r)):
            stub = _stub(r, i)
            out += ["\t.p2align 4", f"\t.globl {stub}", f"\t.def {stub}; .scl 2; .type 32; .endef"]
            if n <= WIN64_REGISTER_ARGS:
                out += [f"{stub}:", f"\tjmp {target}"]
                continue
            size = win64_frame_bytes(n)
            out += [f"\t.seh_proc {stub}", f"{stub}:", f"\tsubq ${size}, %rsp",
                    f"\t.seh_stackalloc {size}", "\t.seh_endprologue"]
            for k in range(WIN64_REGISTER_ARGS, n):
                out += [f"\tmovq {size + 8 + 8 * k}(%rsp), %rax", f"\tmovq %rax, {8 * k}(%rsp)"]
            out += [f"\tcall {target}", f"\taddq ${size}, %rsp", "\tret", "\t.seh_endproc"]
    return "\n".join(out) + "\n"


def windows_def(routines: list[Routine], library: str = "vorn") -> str:
    # On Windows the shared entries become aliases of one exported stub each.
    out = [f"LIBRARY {library}", "EXPORTS"]
    for r in routines:
        for i, (names, _) in enumerate(entries(r)):
            out += [f"    {n}={_stub(r, i)}" for n in names]
    return "\n".join(out) + "\n"
