# Cross-builds for 64-bit Windows from Linux: clang and lld over the headers
# and libraries of mingw-w64. clang, because this target's structured exception
# guards (__try / __except) exist in no other compiler that runs here.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

# The C runtime of all that is built: msvcrt, which every Windows has, or ucrt,
# which Windows 10 and later have, and for which Debian 13 has the libraries.
set(runtime msvcrt)
if(NOT "$ENV{KOVA_RUNTIME}" STREQUAL "")
  set(runtime $ENV{KOVA_RUNTIME})
endif()
set(KOVA_RUNTIME ${runtime} CACHE STRING "C runtime: msvcrt or ucrt")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KOVA_RUNTIME)

set(KOVA_TRIPLE x86_64-w64-mingw32)
if(KOVA_RUNTIME STREQUAL ucrt)
  set(KOVA_TRIPLE x86_64-w64-mingw32ucrt)
  # clang would take this machine's own headers of the C++ library first.
  file(GLOB headers /usr/lib/gcc/${KOVA_TRIPLE}/*/include/c++)
  foreach(folder "" /${KOVA_TRIPLE} /backward)
    string(APPEND CMAKE_CXX_FLAGS_INIT
      " -stdlib++-isystem ${headers}${folder}")
  endforeach()
elseif(NOT KOVA_RUNTIME STREQUAL msvcrt)
  message(FATAL_ERROR "KOVA_RUNTIME is msvcrt or ucrt, not ${KOVA_RUNTIME}")
endif()
set(CMAKE_C_COMPILER clang-19)
set(CMAKE_CXX_COMPILER clang++-19)
set(CMAKE_C_COMPILER_TARGET ${KOVA_TRIPLE})
set(CMAKE_CXX_COMPILER_TARGET ${KOVA_TRIPLE})
set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_RC_COMPILER llvm-windres-19)

# -static keeps the C++ runtime inside each image, so that an image needs
# system libraries alone; libstdc++ of this target needs -pthread named.
set(KOVA_LINK_FLAGS "-fuse-ld=lld-19 -static -pthread -Wl,--build-id=none")
set(CMAKE_EXE_LINKER_FLAGS_INIT "${KOVA_LINK_FLAGS}")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "${KOVA_LINK_FLAGS}")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "${KOVA_LINK_FLAGS}")

set(CMAKE_FIND_ROOT_PATH /usr/${KOVA_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
# A CMake package for this target may be installed anywhere.
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
set(CMAKE_CROSSCOMPILING_EMULATOR ${CMAKE_CURRENT_LIST_DIR}/../script/wine)
