"""Build-time: vorn.dll's whole module definition, the plain family's
(exports.def, from the catalogue) followed by the C++ entries, whose MSVC
decorations only the compiler knows: they are read back from the /EXPORT
directives of the object clang made. The DLL is linked with this file and
its import library vorn.lib is made from it, so the two cannot disagree."""
import argparse
import re
import subprocess
from pathlib import Path

from outputs import write_if_changed

DIRECTIVE = re.compile(r'/EXPORT:"?([^"\s,]+)')


def main() -> None:
    ap = argparse.ArgumentParser()
    ap.add_argument("--plain", required=True, type=Path, help="exports.def of the plain family")
    ap.add_argument("--object", required=True, help="the MSVC-ABI object of the C++ entries")
    ap.add_argument("--readobj", required=True, help="llvm-readobj")
    ap.add_argument("--out", required=True, type=Path)
    args = ap.parse_args()
    text = subprocess.run([args.readobj, "--coff-directives", args.object],
                          check=True, capture_output=True, text=True).stdout
    names = DIRECTIVE.findall(text)
    if not names:
        raise SystemExit(f"{args.object}: no exported C++ entries")
    plain = args.plain.read_text()
    write_if_changed(args.out, plain + "".join(f"    {n}\n" for n in sorted(names)))


if __name__ == "__main__":
    main()
