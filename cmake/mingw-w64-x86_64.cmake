# Cross toolchain for Windows x64: Debian's mingw-w64 (GCC 12), tests run under Wine.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_SYSTEM_VERSION 10.0)
set(_triple x86_64-w64-mingw32)

# The posix flavour by name: the win32 flavour of GCC 12 has no <thread> and <mutex>.
set(CMAKE_C_COMPILER ${_triple}-gcc-posix)
set(CMAKE_CXX_COMPILER ${_triple}-g++-posix)
set(CMAKE_RC_COMPILER ${_triple}-windres)
set(CMAKE_AR ${_triple}-gcc-ar-posix CACHE FILEPATH "")
set(CMAKE_RANLIB ${_triple}-gcc-ranlib-posix CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Windows 10 interfaces, wide calls, no min and max macros.
set(CMAKE_C_FLAGS_INIT "-D_WIN32_WINNT=0x0A00 -DWINVER=0x0A00 -DNTDDI_VERSION=0x0A000006 -DUNICODE -D_UNICODE -DNOMINMAX -DWIN32_LEAN_AND_MEAN")
set(CMAKE_CXX_FLAGS_INIT "${CMAKE_C_FLAGS_INIT}")

# libstdc++, libgcc and winpthread inside every image: nothing to ship beside it, nothing to find at start. Sections at
# whole pages of the file: Wine can map them then, and else reads them all into each process's own memory.
foreach(_kind EXE SHARED MODULE)
  set(CMAKE_${_kind}_LINKER_FLAGS_INIT "-static -Wl,--no-insert-timestamp -Wl,--file-alignment,4096")
endforeach()

set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run CACHE FILEPATH "")
