"""The unpacked Windows archive, read from outside: its file list; each
import library against its DLL's export table (short import members by
name, naming that DLL, one per exported name); vorn.def against vorn.dll;
the companions' exports against the Linux companions'.
    check_archive.py ROOT LLVM_READOBJ NM LINUX_COMPANION_DIR"""
import re
import subprocess
import sys
from pathlib import Path

FILES = {"README.txt", "lib/vorn.def", "include/vorn_instable.h"} | {
    f"bin/{n}.dll" for n in ("vorn", "libblas", "liblapack")} | {
    f"lib/{n}.lib" for n in ("vorn", "libblas", "liblapack")} | {
    f"include/vorn/{n}.hpp" for n in ("vorn", "aligned_ptr", "vorn_stable")} | {
    f"lib/cmake/vorn/vorn{n}.cmake" for n in ("Config", "ConfigVersion", "Targets", "Targets-release")}
# Names a companion exports on one platform only, with the reason. None:
# the same generator and hand files make both.
PLATFORM_ONLY: dict[str, str] = {}
MEMBER = re.compile(r"^File: (\S+)\nFormat: COFF-import-file\nType: \w+\nName type: name\nSymbol: __imp_(\S+)$", re.M)


def run(*cmd: str) -> str:
    return subprocess.run(cmd, check=True, capture_output=True, text=True).stdout


def main() -> int:
    root, readobj, nm, linux = Path(sys.argv[1]), sys.argv[2], sys.argv[3], Path(sys.argv[4])
    failures = []
    present = {str(p.relative_to(root)) for p in root.rglob("*") if p.is_file()}
    if present != FILES:
        failures.append(f"archive: missing {sorted(FILES - present)}, unexpected {sorted(present - FILES)}")
    for dll in ("vorn", "libblas", "liblapack"):
        exported = set(re.findall(r"^  Name: (\S+)$", run(readobj, "--coff-exports", f"{root}/bin/{dll}.dll"), re.M))
        members = MEMBER.findall(run(readobj, f"{root}/lib/{dll}.lib"))
        if sorted(n for _, n in members) != sorted(exported) or {d for d, _ in members} != {f"{dll}.dll"}:
            failures.append(f"{dll}.lib against {dll}.dll: {sorted({n for _, n in members} ^ exported)[:8]}")
        if dll == "vorn":
            other = {line.split("=")[0].strip() for line in (root / "lib/vorn.def").read_text().splitlines()[2:]}
        else:
            other = set(run(nm, "-D", "--defined-only", "--format=just-symbols", f"{linux}/{dll}.so.3").split())
        if (other ^ exported) - PLATFORM_ONLY.keys():
            failures.append(f"{dll}.dll against {'vorn.def' if dll == 'vorn' else dll + '.so.3'}: "
                            f"{sorted((other ^ exported) - PLATFORM_ONLY.keys())[:8]}")
        print(f"{dll}.dll: {len(exported)} names, {len(members)} in {dll}.lib, {len(other)} on the other side")
    for f in failures:
        print("FAIL:", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
