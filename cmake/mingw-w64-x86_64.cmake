# Cross-building vorn.dll for 64-bit Windows on Debian: mingw-w64's GCC
# compiles, LLVM's lld links (it takes the COFF objects that clang makes
# for the MSVC-decorated names as well as GCC's).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(VORN_MINGW_TRIPLE x86_64-w64-mingw32)

set(CMAKE_C_COMPILER ${VORN_MINGW_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${VORN_MINGW_TRIPLE}-g++)
set(CMAKE_ASM_COMPILER ${VORN_MINGW_TRIPLE}-gcc)
set(CMAKE_Fortran_COMPILER ${VORN_MINGW_TRIPLE}-gfortran)
set(CMAKE_RC_COMPILER ${VORN_MINGW_TRIPLE}-windres)
set(CMAKE_FIND_ROOT_PATH /usr/${VORN_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# GCC's -fuse-ld=lld falls back to GNU ld without a word, so clang drives
# the link, against mingw-w64's GCC runtime (win32 threads: no winpthread),
# linked in statically so that the DLL imports only the C runtime beside the
# system and the computational library. The link rules are set after the
# platform's own, from the override file.
set(VORN_MINGW_GCC_LIBDIR /usr/lib/gcc/${VORN_MINGW_TRIPLE}/12-win32)
set(VORN_MINGW_LINK "clang++ --target=${VORN_MINGW_TRIPLE} -fuse-ld=lld -L${VORN_MINGW_GCC_LIBDIR} -static-libgcc -static-libstdc++")
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX ${CMAKE_CURRENT_LIST_DIR}/mingw-w64-link-rules.cmake)

# Tests run under wine.
find_program(VORN_WINE wine)
set(CMAKE_CROSSCOMPILING_EMULATOR ${VORN_WINE})
