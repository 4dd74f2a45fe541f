"""The unpacked Windows archive, read from outside: its file list, each
import library against its DLL's export table (short import format, the
DLL's own name, the same names; vorn.lib and vorn.def alike), and the
companions' exports against the Linux companions'."""
import argparse
import re
import subprocess
import sys
from pathlib import Path

FILES = {
    "README.txt", "bin/vorn.dll", "bin/libblas.dll", "bin/liblapack.dll",
    "lib/vorn.lib", "lib/vorn.def", "lib/libblas.lib", "lib/liblapack.lib",
    "include/vorn_instable.h", "include/vorn/vorn.hpp", "include/vorn/aligned_ptr.hpp",
    "include/vorn/vorn_stable.hpp", "lib/cmake/vorn/vornConfig.cmake",
    "lib/cmake/vorn/vornConfigVersion.cmake", "lib/cmake/vorn/vornTargets.cmake",
    "lib/cmake/vorn/vornTargets-release.cmake",
}
# Names a companion exports on one platform only, with the reason. None today:
# the same generator and hand files make both.
PLATFORM_ONLY: dict[str, str] = {}


def readobj(tool: str, *args: str) -> str:
    return subprocess.run([tool, *args], check=True, capture_output=True, text=True).stdout


def dll_exports(tool: str, dll: Path) -> set[str]:
    return set(re.findall(r"^  Name: (\S+)$", readobj(tool, "--coff-exports", str(dll)), re.M))


def import_members(tool: str, lib: Path) -> list[tuple[str, str, str]]:
    """(DLL named, name imported, format) of every member but the
    import descriptors, which are ordinary objects."""
    members = []
    for block in readobj(tool, str(lib)).split("\nFile: ")[1:]:
        if "Format: COFF-import-file" not in block:
            continue
        dll = block.split("\n", 1)[0]
        name = re.search(r"^Symbol: __imp_(\S+)$", block, re.M)[1]
        members.append((dll, name, re.search(r"^Name type: (\S+)$", block, re.M)[1]))
    return members


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--root", type=Path, required=True)
    ap.add_argument("--readobj", required=True)
    ap.add_argument("--nm", required=True)
    ap.add_argument("--linux-companions", type=Path, required=True)
    args = ap.parse_args()
    failures = []

    present = {str(p.relative_to(args.root)) for p in args.root.rglob("*") if p.is_file()}
    if present != FILES:
        failures.append(f"archive files: missing {sorted(FILES - present)}, unexpected {sorted(present - FILES)}")

    for dll in ("vorn", "libblas", "liblapack"):
        exported = dll_exports(args.readobj, args.root / f"bin/{dll}.dll")
        members = import_members(args.readobj, args.root / f"lib/{dll}.lib")
        if {m[0] for m in members} != {f"{dll}.dll"} or {m[2] for m in members} != {"name"}:
            failures.append(f"{dll}.lib: members not all short imports by name from {dll}.dll")
        imported = {m[1] for m in members}
        if imported != exported or len(members) != len(exported):
            failures.append(f"{dll}.lib against {dll}.dll: {sorted(imported ^ exported)[:8]}")
        if dll == "vorn":
            defined = {line.split("=")[0].strip() for line in
                       (args.root / "lib/vorn.def").read_text().splitlines()[2:]}
            if defined != exported:
                failures.append(f"vorn.def against vorn.dll: {sorted(defined ^ exported)[:8]}")
            continue
        so = args.linux_companions / f"{dll}.so.3"
        linux = set(subprocess.run([args.nm, "-D", "--defined-only", "--format=just-symbols", str(so)],
                                   check=True, capture_output=True, text=True).stdout.split())
        differing = {n for n in linux ^ exported if n not in PLATFORM_ONLY}
        if differing:
            failures.append(f"{dll}.dll against {so.name}: {sorted(differing)[:8]}")
        print(f"{dll}.dll exports {len(exported)} names, {so.name} {len(linux)}")

    for f in failures:
        print("FAIL:", f)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
