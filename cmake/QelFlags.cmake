# One interface target, `qel_flags`, carries the language level, the warnings and the arithmetic
# rules of every target in the project.

option(QEL_WARNINGS_AS_ERRORS "Treat warnings as errors" OFF)
set(QEL_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_program(QEL_CCACHE ccache)
mark_as_advanced(QEL_CCACHE)
if(QEL_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # It takes files that include precompiled headers for what the headers are when told so.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${QEL_CCACHE}")
endif()

# qel_precompile(<target> <group> <header>...) has library headers read once for all targets of a group,
# which have the same flags, where sources are compiled in batches.
function(qel_precompile target group)
  if(NOT QEL_BATCHES)
    return()
  endif()
  get_property(first GLOBAL PROPERTY QEL_PRECOMPILED_${group})
  if(first)
    target_precompile_headers(${target} REUSE_FROM ${first})
  else()
    set_property(GLOBAL PROPERTY QEL_PRECOMPILED_${group} ${target})
    target_precompile_headers(${target} PRIVATE ${ARGN})
  endif()
endfunction()

add_library(qel_flags INTERFACE)
target_compile_options(qel_flags INTERFACE
  # Sums keep the stated rounding: no fused multiply-add on any processor level.
  -ffp-contract=off
  $<$<NOT:$<BOOL:${EMSCRIPTEN}>>:-fstack-protector-strong>
  -fvisibility=hidden -fvisibility-inlines-hidden
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wundef -Wnon-virtual-dtor -Woverloaded-virtual
  # GCC 12 sees overlaps in std::string that are not there.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # It takes types of one source in a batch for those of a header.
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<BOOL:${QEL_BATCHES}>>:-Wno-subobject-linkage>
  # Levels leave out what they have no instructions for, and with it what only that calls.
  $<$<CXX_COMPILER_ID:Clang>:-Wno-unneeded-internal-declaration -Wno-unused-function>
  $<$<BOOL:${QEL_WARNINGS_AS_ERRORS}>:-Werror>)
if(QEL_SANITIZE)
  # A target's property QEL_UNCHECKED lists the sanitizers that it is built without; it starts with the
  # value of DEFAULT_QEL_UNCHECKED.
  define_property(TARGET PROPERTY QEL_UNCHECKED INITIALIZE_FROM_VARIABLE DEFAULT_QEL_UNCHECKED)
  set(unchecked "$<TARGET_PROPERTY:QEL_UNCHECKED>")
  target_compile_options(qel_flags INTERFACE -fsanitize=${QEL_SANITIZE}
    "$<$<BOOL:${unchecked}>:-fno-sanitize=$<JOIN:${unchecked},$<COMMA>>>")
  if(QEL_SANITIZE MATCHES "address")
    # It sees what is null or beyond an object; to look twice takes a tenth of the build.
    target_compile_options(qel_flags INTERFACE -fno-sanitize=null,object-size)
  endif()
  target_compile_options(qel_flags INTERFACE -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Checked accesses are not turned into vectors, whatever the sources ask for.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
  target_link_options(qel_flags INTERFACE -fsanitize=${QEL_SANITIZE})
endif()

# What is shipped checks itself where that costs nothing that could be measured: bounded copies, pages
# of the stack touched in order, marked targets of jumps. Kernels are left as they are: they call
# nothing, and keep nothing but rows.
set(shipped "$<CONFIG:Release>")
set(jump_targets -fcf-protection=full)
if(QEL_SANITIZE OR EMSCRIPTEN)
  set(shipped 0)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "aarch64")
  set(jump_targets -mbranch-protection=standard)
endif()
add_library(qel_hardened_code INTERFACE)
target_compile_options(qel_hardened_code INTERFACE
  "$<${shipped}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3;-fstack-clash-protection;${jump_targets}>")
# Where no loops over pixels are written: bounds of library containers as well.
add_library(qel_checked_library INTERFACE)
target_link_libraries(qel_checked_library INTERFACE qel_hardened_code)
target_compile_definitions(qel_checked_library INTERFACE "$<${shipped}:_GLIBCXX_ASSERTIONS>")

# Programs are loaded at any address.
include(CheckPIESupported)
if(NOT EMSCRIPTEN)
  check_pie_supported(LANGUAGES CXX)
endif()

# For shared objects and the tool: everything resolved at load, relocations read-only afterwards.
add_library(qel_hardened_link INTERFACE)
target_link_options(qel_hardened_link INTERFACE -Wl,-z,now -Wl,-z,relro -Wl,-z,noexecstack)
if(NOT QEL_SANITIZE)
  target_link_options(qel_hardened_link INTERFACE -Wl,-z,defs)
endif()
