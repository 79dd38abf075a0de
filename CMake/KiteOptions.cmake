# What every target of the project is compiled with.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
include(CheckPIESupported)
check_pie_supported()  # or programs would be linked as the compiler's maker saw fit
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(KITE_CCACHE ccache)
if(KITE_CCACHE AND PROJECT_IS_TOP_LEVEL)
  # Precompiled headers and checkouts in other folders find what was compiled before.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros CCACHE_NOHASHDIR=1
                                  CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} ${KITE_CCACHE})
endif()

option(KITE_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
option(KITE_COVERAGE "Measure line coverage" OFF)
set(KITE_SANITIZERS "" CACHE STRING "Comma-separated sanitizers, such as address,undefined")

add_library(kite_options INTERFACE)
target_compile_options(kite_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                                              -Wnon-virtual-dtor -Woverloaded-virtual -fstack-protector-strong
                                              $<$<BOOL:${KITE_WARNINGS_AS_ERRORS}>:-Werror>)
# Nothing that the loader has bound can be written over, and no stack holds code.
set(KITE_HARDENED_LINK -Wl,-z,relro,-z,now,-z,noexecstack)
target_link_options(kite_options INTERFACE ${KITE_HARDENED_LINK})
if(KITE_SANITIZERS)
  target_compile_options(kite_options INTERFACE -fsanitize=${KITE_SANITIZERS} -fno-sanitize-recover=all
                                                -fno-omit-frame-pointer)
  target_link_options(kite_options INTERFACE -fsanitize=${KITE_SANITIZERS})
else()
  target_compile_definitions(kite_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:_FORTIFY_SOURCE=2>)
endif()
if(KITE_SANITIZERS OR NOT CMAKE_BUILD_TYPE STREQUAL Debug)
  # What gcc 12 says of untouched variants and of short strings is wrong where a sanitizer instruments them, and where it
  # optimizes (GCC bug 105651): which of them it warns of changes with what is inlined. clang warns without guessing.
  target_compile_options(kite_options INTERFACE
    "$<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized;-Wno-array-bounds;-Wno-stringop-overflow;-Wno-restrict>")
endif()
if(KITE_COVERAGE)
  target_compile_options(kite_options INTERFACE --coverage -fprofile-update=atomic)
  target_link_options(kite_options INTERFACE --coverage)
endif()

# A shared library is optimized as a whole; a static one is the host's to link as it likes.
set(whole_library OFF)
if((BUILD_SHARED_LIBS OR KITE_BUILD_BENCHMARKS) AND CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  set(whole_library ON)
endif()
option(KITE_LINK_TIME_OPTIMIZATION "Optimize the shared library at link time (gcc)" ${whole_library})

# kite_shared_options(TARGET): how the shared library is linked. It shows what is Kite's own, and nothing else.
function(kite_shared_options target)
  set(exports ${PROJECT_SOURCE_DIR}/CMake/exports.map)
  target_link_options(${target} PRIVATE ${KITE_HARDENED_LINK} -Wl,--gc-sections -Wl,--version-script=${exports} -Wl,-z,pack-relative-relocs
    # Its threads run until the process ends, so a host's dlclose must not unmap it.
    -Wl,-z,nodelete
    $<$<AND:$<BOOL:${KITE_LINK_TIME_OPTIMIZATION}>,$<CONFIG:Release>>:-flto=auto>)
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${exports} LINKER_LANGUAGE CXX)
endfunction()

# kite_floor(NAME FOLDER [KIND]): the library kite_NAME of all sources in FOLDER, of objects unless KIND says another one.
function(kite_floor name folder)
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${folder}/*.cpp ${folder}/*.h)
  set(kind ${ARGN} OBJECT)
  list(GET kind 0 kind)
  add_library(kite_${name} ${kind} ${sources})
  kite_floor_options(kite_${name})
endfunction()

# kite_floor_options(TARGET): how the library's own sources are compiled.
function(kite_floor_options target)
  target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Include>
                                       PRIVATE ${PROJECT_SOURCE_DIR}/Sources)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:kite_options>)
  if(KITE_SANITIZERS)
    target_compile_options(${target} PRIVATE -O1)  # the tests compile faster without
  endif()
  # Every event runs through these, so they are compiled for speed, all else for size.
  set(level -Oz)
  if(target MATCHES "^kite_(base|json|events|queue)$")
    set(level -O2)
  endif()
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:${level};-ffunction-sections;-fdata-sections>)
  if(KITE_LINK_TIME_OPTIMIZATION)
    target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-flto=auto;-ffat-lto-objects>)
  endif()
  set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON LINKER_LANGUAGE CXX)
endfunction()
