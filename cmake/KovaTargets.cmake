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

# What tells tests of a native build from those of the same name for Windows.
if(WIN32)
  set(KOVA_TEST_PREFIX "")
elseif(KOVA_SANITIZERS STREQUAL "thread")
  set(KOVA_TEST_PREFIX threads)
else()
  set(KOVA_TEST_PREFIX native)
endif()

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

# Builds the distribution's GoogleTest sources for whatever target is built, and
# its headers once for all tests: they take longer to read than most tests do.
# Not so for what is shipped, for it changes an image. ccache knows what was
# compiled without such headers, and then does better alone.
function(kova_use_googletest)
  set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
  set(BUILD_GMOCK ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest ${PROJECT_BINARY_DIR}/googletest
    EXCLUDE_FROM_ALL SYSTEM)
  if("${CMAKE_CXX_COMPILER_LAUNCHER}" MATCHES "ccache")
    set(CMAKE_DISABLE_PRECOMPILE_HEADERS ON PARENT_SCOPE)
  endif()
  set(source ${PROJECT_BINARY_DIR}/precompiled_tests.cpp)
  file(CONFIGURE OUTPUT ${source} CONTENT "")
  add_library(kova_precompiled_tests OBJECT ${source})
  kova_compile_options(kova_precompiled_tests)
  target_link_libraries(kova_precompiled_tests PRIVATE GTest::gmock)
  target_precompile_headers(kova_precompiled_tests PRIVATE
    <gmock/gmock.h> <gtest/gtest.h> <algorithm> <filesystem> <fstream>
    <optional> <random> <thread> <base/windows_api.h>)
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
  if(WIN32)
    # An image takes the functions that it uses, not whole files.
    target_compile_options(kova_${name} PRIVATE -ffunction-sections)
  endif()
  list(TRANSFORM ARG_ROOMS PREPEND kova_)
  if(NOT WIN32)
    set(ARG_LIBRARIES kova_windows_stand_in)
  endif()
  target_link_libraries(kova_${name} PUBLIC ${ARG_ROOMS} ${ARG_LIBRARIES})
endfunction()

# kova_test_program(<program> <source> [LINK <targets...>]
#   [NEEDS <targets that are built first...>])
# A program that tests run; it lies beside them.
function(kova_test_program program source)
  cmake_parse_arguments(ARG "" "" "LINK;NEEDS" ${ARGN})
  add_executable(${program} ${source})
  kova_compile_options(${program})
  target_include_directories(${program} PRIVATE ${KOVAServer_SOURCE_DIR})
  target_link_libraries(${program} PRIVATE ${ARG_LINK})
  kova_image_symbols(${program})
  set_target_properties(${program} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${KOVA_TEST_BIN})
  if(ARG_NEEDS)
    add_dependencies(${program} ${ARG_NEEDS})
  endif()
endfunction()

# kova_tests(<program> SOURCES <files...> [THREADS <files...>]
#   [LINK <targets...>] [NEEDS <targets that are built first...>] [PARTS <n>]
#   [COST <seconds>])
# One test program, which CTest runs as one entry, or as so many parts of one
# that takes long; the longest first. A build that watches for data races has those of THREADS
# alone.
function(kova_tests program)
  cmake_parse_arguments(ARG "" "PARTS;COST" "SOURCES;THREADS;LINK;NEEDS" ${ARGN})
  if(KOVA_TEST_PREFIX STREQUAL threads)
    if(NOT ARG_THREADS)
      return()
    endif()
    set(ARG_SOURCES "")
  endif()
  list(APPEND ARG_SOURCES ${ARG_THREADS})
  add_executable(${program} ${ARG_SOURCES})
  kova_compile_options(${program})
  target_include_directories(${program} PRIVATE ${KOVAServer_SOURCE_DIR})
  target_link_libraries(${program} PRIVATE
    ${ARG_LINK} GTest::gmock_main)
  target_precompile_headers(${program} REUSE_FROM kova_precompiled_tests)
  kova_image_symbols(${program})
  set_target_properties(${program} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${KOVA_TEST_BIN})
  if(ARG_NEEDS)
    add_dependencies(${program} ${ARG_NEEDS})
  endif()
  list(FILTER ARG_SOURCES INCLUDE REGEX "_test\\.cpp$")
  set(command $<TARGET_FILE:${program}>)
  if(WIN32)
    list(PREPEND command wine)
  endif()
  if(NOT ARG_PARTS)
    kova_test(${program} COMMAND ${command} LAYERS_OF ${ARG_SOURCES}
      COST ${ARG_COST})
    return()
  endif()
  foreach(part RANGE 1 ${ARG_PARTS})
    math(EXPR index "${part} - 1")
    kova_test(${program}-${part} COMMAND ${command} LAYERS_OF ${ARG_SOURCES}
      COST ${ARG_COST}
      ENVIRONMENT GTEST_TOTAL_SHARDS=${ARG_PARTS} GTEST_SHARD_INDEX=${index})
  endforeach()
endfunction()

# kova_script_test(<name> COMMAND <command...> FILE <file that is the test>
#   [NEEDS <targets...>] [COST <seconds>])
# A command that is one test. The target <name> builds what it needs.
function(kova_script_test name)
  cmake_parse_arguments(ARG "" "FILE;COST" "COMMAND;NEEDS" ${ARGN})
  add_custom_target(${name})
  if(ARG_NEEDS)
    add_dependencies(${name} ${ARG_NEEDS})
  endif()
  cmake_path(ABSOLUTE_PATH ARG_FILE)
  if(NOT ARG_COMMAND)
    set(ARG_COMMAND ${ARG_FILE})
  endif()
  kova_test(${name} COMMAND ${ARG_COMMAND} LAYERS_OF ${ARG_FILE}
    LABELS script COST ${ARG_COST})
endfunction()

# kova_test(<name> COMMAND <command...> [LAYERS_OF <files...>]
#   [LABELS <labels...>] [COST <seconds>] [ENVIRONMENT <settings...>])
# An entry of CTest. Its labels are the layers that the first lines of its files
# name, the room or the part of the tree that it lies in, and LABELS.
function(kova_test name)
  cmake_parse_arguments(ARG "" "COST" "COMMAND;LAYERS_OF;LABELS;ENVIRONMENT"
    ${ARGN})
  foreach(file IN LISTS ARG_LAYERS_OF)
    file(STRINGS ${file} line LIMIT_COUNT 2)
    if("${line}" MATCHES "(//|#) (Unit|Patched|Whole):")
      string(TOLOWER ${CMAKE_MATCH_2} layer)
      list(APPEND ARG_LABELS ${layer})
    endif()
  endforeach()
  cmake_path(RELATIVE_PATH CMAKE_CURRENT_SOURCE_DIR
    BASE_DIRECTORY ${KOVAServer_SOURCE_DIR} OUTPUT_VARIABLE folder)
  if("${folder}" MATCHES "^(src|test)/([a-z_]+)|^([a-z]+)")
    list(APPEND ARG_LABELS ${CMAKE_MATCH_2}${CMAKE_MATCH_3})
  endif()
  list(APPEND ARG_LABELS ${KOVA_TEST_PREFIX})
  list(REMOVE_ITEM ARG_LABELS scripts test)
  list(REMOVE_DUPLICATES ARG_LABELS)
  string(JOIN - name ${KOVA_TEST_PREFIX} ${name})
  add_test(NAME ${name} WORKING_DIRECTORY ${KOVA_TEST_BIN}
    COMMAND ${KOVAServer_SOURCE_DIR}/test/run_test.sh ${name} ${ARG_COMMAND})
  set_tests_properties(${name} PROPERTIES
    LABELS "${ARG_LABELS}"
    ENVIRONMENT "${ARG_ENVIRONMENT}"
    COST "${ARG_COST}"
    SKIP_RETURN_CODE 77)
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

# An image that is shipped: without what it does not use, and without the debug
# sections of the runtime's own objects, which no debugger needs for our code;
# its symbols are in a file of their own. The linker's map says what is inside,
# which script/check-images reads.
function(kova_shipped_image target)
  kova_image_symbols(${target})
  target_link_libraries(${target} PRIVATE kova_terminate)
  target_link_options(${target} PRIVATE
    -Wl,--gc-sections -Wl,--strip-all -Wl,-Map=symbols/${target}.map)
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
