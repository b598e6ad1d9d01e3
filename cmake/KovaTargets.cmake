# The few target shapes this project has: a room (static library), a room's
# unit tests (one program), and an image (DLL or EXE) with its symbols and its
# version. Folders that can be built alone, too, are projects of their own: no
# path here may depend on which project calls.

set(KOVA_BIN ${PROJECT_BINARY_DIR}/bin)
set(KOVA_TEST_BIN ${PROJECT_BINARY_DIR}/test-bin)
set(KOVA_SYMBOLS ${PROJECT_BINARY_DIR}/symbols)
file(MAKE_DIRECTORY ${KOVA_BIN} ${KOVA_TEST_BIN} ${KOVA_SYMBOLS})

# What native programs are checked by, e.g. "thread" in place of the default;
# nothing for those that are measured.
set(KOVA_SANITIZERS address,undefined CACHE STRING
  "Sanitizers of native builds")

# One commit gives the same images and symbols in whatever folder it is built:
# no path of that folder and no time is recorded. The linker puts a hash of the
# image where the time would stand, by which symbol servers tell builds apart.
function(kova_reproducible_images)
  if(NOT WIN32)
    return()
  endif()
  add_compile_options(
    $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build>
    $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.>
    $<$<COMPILE_LANGUAGE:C,CXX>:-ffile-compilation-dir=.>
    $<$<COMPILE_LANGUAGE:C,CXX>:-gno-codeview-command-line>)
  add_link_options(-Wl,-Xlink=/Brepro -Wl,-Xlink=/pdbsourcepath:kova)
endfunction()

# Builds the distribution's GoogleTest sources for whatever target is built.
function(kova_use_googletest)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest
    EXCLUDE_FROM_ALL SYSTEM)
endfunction()

function(kova_compile_options target)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Werror -Wthread-safety)
  target_include_directories(${target} PUBLIC
    ${KOVAServer_SOURCE_DIR}/src ${KOVAServer_SOURCE_DIR}/include)
  if(WIN32)
    target_compile_options(${target} PRIVATE -fms-extensions -g -gcodeview)
    target_compile_definitions(${target} PRIVATE
      UNICODE _UNICODE _WIN32_WINNT=0x0601 WINVER=0x0601)
  else()
    target_include_directories(${target} BEFORE PUBLIC
      ${KOVAServer_SOURCE_DIR}/test/native)
    if(KOVA_SANITIZERS)
      target_compile_options(${target} PRIVATE
        -g -fno-omit-frame-pointer -fsanitize=${KOVA_SANITIZERS}
        -fno-sanitize-recover=all)
      target_link_options(${target} PUBLIC -fsanitize=${KOVA_SANITIZERS})
    endif()
  endif()
endfunction()

# kova_room(<name> SOURCES <files...> [ROOMS <rooms...>] [LIBRARIES <libs...>])
# Builds src/<name> as the static library kova_<name>. LIBRARIES are import
# libraries of Windows; native builds link the stand-in instead.
function(kova_room name)
  cmake_parse_arguments(ARG "" "" "SOURCES;ROOMS;LIBRARIES" ${ARGN})
  add_library(kova_${name} STATIC ${ARG_SOURCES})
  kova_compile_options(kova_${name})
  list(TRANSFORM ARG_ROOMS PREPEND kova_)
  if(NOT WIN32)
    set(ARG_LIBRARIES kova_windows_stand_in)
  endif()
  target_link_libraries(kova_${name} PUBLIC ${ARG_ROOMS} ${ARG_LIBRARIES})
endfunction()

# kova_tests(<program> SOURCES <files...> [LINK <targets...>])
# One test program, run by CTest as one entry.
function(kova_tests program)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  add_executable(${program} ${ARG_SOURCES})
  kova_compile_options(${program})
  target_include_directories(${program} PRIVATE ${KOVAServer_SOURCE_DIR})
  target_link_libraries(${program} PRIVATE
    ${ARG_LINK} GTest::gmock_main)
  kova_image_symbols(${program})
  set_target_properties(${program} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${KOVA_TEST_BIN})
  add_test(NAME ${program} COMMAND ${program})
  set_tests_properties(${program} PROPERTIES TIMEOUT 300)
endfunction()

# Keeps an image's symbols in a folder of their own and records no path to
# them: some debuggers' helper libraries fail on a symbol file found beside
# the image. The folder is named from the build folder, where Ninja links: the
# symbols record the linker's command line.
function(kova_image_symbols target)
  if(WIN32)
    target_link_options(${target} PRIVATE
      -Wl,--pdb=symbols/${target}.pdb
      -Wl,-Xlink=/pdbaltpath:${target}.pdb)
  endif()
endfunction()

# kova_version_resource(<target> TYPE VFT_APP|VFT_DLL FILE <name>
#   DESCRIPTION <text>)
# Gives an image the version that the explorer and installers read.
function(kova_version_resource target)
  cmake_parse_arguments(ARG "" "TYPE;FILE;DESCRIPTION" "" ${ARGN})
  configure_file(${KOVAServer_SOURCE_DIR}/cmake/version.rc.in
    ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc @ONLY)
  target_sources(${target} PRIVATE
    ${CMAKE_CURRENT_BINARY_DIR}/${target}_version.rc)
endfunction()
