# Cross-compiles the 64-bit Windows binaries on Linux with Debian's mingw-w64,
# posix thread model (GoogleTest needs std::mutex; the runtime is linked
# statically, so the binaries still import only Windows system DLLs).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(KYGUID_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${KYGUID_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${KYGUID_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${KYGUID_TRIPLE}-windres)
set(CMAKE_ASM_COMPILER ${KYGUID_TRIPLE}-gcc-posix)
set(CMAKE_OBJCOPY ${KYGUID_TRIPLE}-objcopy CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${KYGUID_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# Tests and tools run under the project's own Wine prefix (see tools/wine-env.sh).
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../tools/winerun CACHE FILEPATH "")
