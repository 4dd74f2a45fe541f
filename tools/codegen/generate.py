"""Build-time generator: reads the catalogue and writes the export table,
the declarations of the computational library's entries and the interface
functions of the regular routines into the build tree."""
import argparse
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))

import catalogue  # noqa: E402
import exports  # noqa: E402
import header  # noqa: E402
import interfaces  # noqa: E402
import overrides  # noqa: E402
from outputs import write_if_changed  # noqa: E402

HEADER = "// Generated at build time from catalogue/routines.cat; do not edit.\n"

# Interface sources are split so that the two build cores share the work.
UNITS = {"blas_level1": lambda r: r.is_blas,
         "lapack_s": lambda r: r.group == "L1", "lapack_d": lambda r: r.group == "L2",
         "lapack_c": lambda r: r.group == "L3", "lapack_z": lambda r: r.group == "L4",
         "lapack_other": lambda r: r.group == "L5"}


def main() -> int:
    ap = argparse.ArgumentParser()
    ap.add_argument("--catalogue", required=True, type=Path)
    ap.add_argument("--groups", required=True, type=Path)
    ap.add_argument("--out", required=True, type=Path)
    args = ap.parse_args()

    routines = catalogue.load(args.catalogue)
    groups = catalogue.load_groups(args.groups)
    listed = {r.name for r in routines}
    if listed != set(groups):
        print(f"catalogue and routine set differ: {sorted(listed ^ set(groups))[:20]}", file=sys.stderr)
        return 1

    generated = [r for r in routines if interfaces.supported(r)]
    implemented = interfaces.implemented(routines)
    out = args.out
    out.mkdir(parents=True, exist_ok=True)

    decl = [HEADER, "#pragma once", '#include "frame/lp64.h"', 'extern "C" {']
    decl += [interfaces.library_declaration(r) for r in generated]
    decl.append("}")
    write_if_changed(out / "library_entries.h", "\n".join(decl) + "\n")

    for unit, member in UNITS.items():
        body = [HEADER, '#include "library_entries.h"', '#include "frame/hooks.h"',
                '#include "frame/prechecks.h"', '#include "frame/scratch.h"']
        if unit.startswith("lapack"):
            body.append('#include "lapack/array_frame.h"')
        else:
            # The level 2 and 3 checkers are inline, to be inlined here.
            body += ['#include "blas/level2_checkers.h"', '#include "blas/level3_checkers.h"']
        body.append("")
        body += [interfaces.interface_function(r) + "\n" for r in generated if member(r)]
        write_if_changed(out / f"{unit}.cpp", "\n".join(body))

    write_if_changed(out / "exports.S", exports.elf_assembly(implemented))
    names = exports.spellings(implemented)
    write_if_changed(out / "exports.map", exports.version_script(names))
    write_if_changed(out / "exports_coff.S", exports.coff_assembly(implemented))
    write_if_changed(out / "exports.def", exports.windows_def(implemented))
    write_if_changed(out / "mkl_imports.def", interfaces.import_definitions(implemented))
    write_if_changed(out / "exported_names.txt", "\n".join(names) + "\n")
    (out / "include").mkdir(exist_ok=True)
    write_if_changed(out / "include" / "vorn_instable.h", header.c_header(implemented))
    return 0


if __name__ == "__main__":
    sys.exit(main())
