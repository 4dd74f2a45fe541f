"""Reads vorn.dll's export and import tables back from the PE file and holds
them against the ELF build of the same sources: the same plain names, the
same spellings sharing one address, the same computational-library entries
imported, and C++ entries whose MSVC decorations spell the same signatures
as the ELF library's exported C++ names."""
import argparse
import re
import subprocess
import sys
from collections import defaultdict

PLAIN = "VORN_instable_"


def run(*cmd: str) -> str:
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout


def pe_tables(objdump: str, dll: str):
    text = run(objdump, "-p", dll)
    rva = {int(m[1]): m[2] for m in re.finditer(r"^\t\[\s*(\d+)\] \+base\[\s*\d+\]\s+([0-9a-f]+) Export RVA", text, re.M)}
    names = text.split("[Ordinal/Name Pointer] Table", 1)[1]
    exports = {m[2]: rva[int(m[1])] for m in re.finditer(r"^\t\[\s*(\d+)\] (\S+)$", names, re.M)}
    imports = defaultdict(set)
    for block in re.split(r"^\tDLL Name: ", text, flags=re.M)[1:]:
        dll_name, body = block.split("\n", 1)
        body = body.split("\n\n", 1)[0]
        imports[dll_name] = set(re.findall(r"^\t[0-9a-f]+\s+\d+\s+(\S+)$", body, re.M))
    return exports, imports


def elf_tables(nm: str, so: str):
    exports = {}
    for line in run(nm, "-D", "--defined-only", so).splitlines():
        address, _, name = line.split()
        exports[name] = address
    cxx = {line.split(" ", 2)[2] for line in run(nm, "-DC", "--defined-only", so).splitlines()
           if "(" in line}
    undefined = {line.split()[-1] for line in run(nm, "-D", "--undefined-only", so).splitlines()}
    return exports, cxx, {n for n in undefined if n.startswith("mkl_")}


def groups(table: dict[str, str]) -> set[frozenset[str]]:
    by_address = defaultdict(set)
    for name, address in table.items():
        if name.startswith(PLAIN):
            by_address[address].add(name)
    return {frozenset(g) for g in by_address.values()}


def itanium_form(msvc: str) -> str:
    """`double __cdecl F(int const &, struct K::P<double const>)` as the
    GNU demangler writes the same declaration: `F(int const&, K::P<double const>)`.
    MSVC keeps a pointer parameter's own const in the decoration; the GNU
    spelling of the function's type has none."""
    signature = msvc.split(" __cdecl ", 1)[1]
    signature = signature.replace("struct ", "").replace("class ", "").replace("unsigned __int64", "unsigned long long")
    return re.sub(r" ([&*])", r"\1", signature).replace("*const", "*")


def main() -> int:
    ap = argparse.ArgumentParser()
    for flag in ("--dll", "--elf", "--objdump", "--nm", "--undname"):
        ap.add_argument(flag, required=True)
    args = ap.parse_args()

    pe, imports = pe_tables(args.objdump, args.dll)
    elf, elf_cxx, elf_mkl = elf_tables(args.nm, args.elf)
    failures = []

    def expect(ok: bool, what: str) -> None:
        if not ok:
            failures.append(what)

    pe_plain = {n for n in pe if n.startswith(PLAIN)}
    elf_plain = {n for n in elf if n.startswith(PLAIN) and "(" not in n and not n.startswith("_Z")}
    # The ELF build's spellings and their grouping are the Linux export
    # tests' to check against the spelling rule; here they must be the same.
    expect(pe_plain == elf_plain, f"plain names differ from the ELF build: {sorted(pe_plain ^ elf_plain)[:10]}")
    expect(groups(pe) == groups({n: a for n, a in elf.items() if n in elf_plain}),
           "spellings share addresses differently from the ELF build")

    decorated = sorted(n for n in pe if not n.startswith(PLAIN))
    expect(len(decorated) == 122 and all(n.startswith("?") for n in decorated),
           f"{len(decorated)} other exports, not 122 MSVC-decorated names: {decorated[:5]}")
    readable = run(args.undname, *decorated).split("\n\n") if decorated else []
    spelled = {itanium_form(block.strip().splitlines()[-1]) for block in readable if block.strip()}
    expect(spelled == elf_cxx, "decorated signatures differ from the ELF build's C++ exports: "
           f"{sorted(spelled - elf_cxx)[:3]} / {sorted(elf_cxx - spelled)[:3]}")

    expect(set(imports) == {"KERNEL32.dll", "msvcrt.dll", "mkl_intel_thread.dll"},
           f"imports {sorted(imports)}")
    expect(imports["mkl_intel_thread.dll"] == elf_mkl,
           f"computational entries differ from the ELF build's: {sorted(imports['mkl_intel_thread.dll'] ^ elf_mkl)[:10]}")
    expect("DisableThreadLibraryCalls" in imports["KERNEL32.dll"], "no DisableThreadLibraryCalls import")

    for f in failures:
        print("FAIL:", f)
    print(f"{len(pe_plain)} plain names in {len(groups(pe))} entries, {len(decorated)} decorated names, "
          f"{len(imports['mkl_intel_thread.dll'])} computational entries imported")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
