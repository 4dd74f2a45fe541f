#!/bin/sh
# Builds a C program for the MSVC ABI (clang, lld-link) against the import
# libraries of the unpacked archive. No MSVC runtime is installed: the few
# C functions a program needs come from msvcrt.dll through an import
# library made here from their names.
#   build_msvc.sh CLANG LLD_LINK DLLTOOL ROOT SOURCE OUT LIBRARY...
set -eu
clang=$1 lld=$2 dlltool=$3 root=$4 source=$5 out=$6
shift 6
dir=$(dirname "$out")
mkdir -p "$dir"
printf 'LIBRARY msvcrt.dll\nEXPORTS\n    printf\n    puts\n    memcpy\n    memset\n' >"$dir/msvcrt.def"
printf 'LIBRARY KERNEL32.dll\nEXPORTS\n    ExitProcess\n' >"$dir/kernel32.def"
for lib in msvcrt kernel32; do "$dlltool" -m i386:x86-64 -d "$dir/$lib.def" -l "$dir/$lib.lib"; done
"$clang" --target=x86_64-pc-windows-msvc -std=c99 -O1 -Wall -Wextra -Werror -mno-stack-arg-probe \
  -I"$root/include" -c "$source" -o "$out.obj"
libs=
for lib in "$@"; do libs="$libs $root/lib/$lib.lib"; done
# shellcheck disable=SC2086
"$lld" /nologo /entry:entry /subsystem:console "$out.obj" $libs "$dir/msvcrt.lib" "$dir/kernel32.lib" /out:"$out"
