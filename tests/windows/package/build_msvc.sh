#!/bin/sh
# Builds msvc_caller.c for the MSVC ABI (clang, lld-link) against the
# unpacked archive ROOT into OUT. No MSVC runtime is installed: printf and
# ExitProcess come through import libraries made here from their names.
#   build_msvc.sh CLANG LLD_LINK DLLTOOL ROOT OUT
set -eu
dir=$(dirname "$5")
mkdir -p "$dir"
printf 'LIBRARY msvcrt.dll\nEXPORTS\n    printf\n    puts\n' >"$dir/msvcrt.def"
printf 'LIBRARY KERNEL32.dll\nEXPORTS\n    ExitProcess\n' >"$dir/kernel32.def"
for lib in msvcrt kernel32; do "$3" -m i386:x86-64 -d "$dir/$lib.def" -l "$dir/$lib.lib"; done
"$1" --target=x86_64-pc-windows-msvc -std=c99 -O1 -Wall -Wextra -Werror -mno-stack-arg-probe -I"$4/include" \
  -c "$(dirname "$0")/msvc_caller.c" -o "$5.obj"
"$2" /nologo /entry:entry /subsystem:console "$5.obj" "$4/lib/vorn.lib" "$4/lib/libblas.lib" \
  "$4/lib/liblapack.lib" "$dir/msvcrt.lib" "$dir/kernel32.lib" /out:"$5"
