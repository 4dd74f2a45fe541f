"""The export table: every spelling of every implemented routine, and which
spellings share one entry. Emitted as ELF assembly plus a version script, or
as a Windows module-definition file."""
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


def windows_def(routines: list[Routine], library: str = "vorn") -> str:
    # On Windows the shared entries become aliases of one exported stub each.
    out = [f"LIBRARY {library}", "EXPORTS"]
    for r in routines:
        for i, (names, _) in enumerate(entries(r)):
            stub = f"vorn_entry{i + 1}_{r.lower}"
            out += [f"    {n}={stub}" for n in names]
    return "\n".join(out) + "\n"
