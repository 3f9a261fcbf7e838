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
  set(CMAKE_CXX_COMPILER_LAUNCHER "${QEL_CCACHE}")
endif()

add_library(qel_flags INTERFACE)
target_compile_options(qel_flags INTERFACE
  # Sums keep the stated rounding: no fused multiply-add on any processor level.
  -ffp-contract=off
  -fstack-protector-strong
  -fvisibility=hidden -fvisibility-inlines-hidden
  -Wall -Wextra -Wpedantic -Wshadow -Wcast-qual -Wundef -Wnon-virtual-dtor -Woverloaded-virtual
  # GCC 12 sees overlaps in std::string that are not there.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<BOOL:${QEL_WARNINGS_AS_ERRORS}>:-Werror>)
if(QEL_SANITIZE)
  target_compile_options(qel_flags INTERFACE
    -fsanitize=${QEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
    # Checked accesses are not turned into vectors, whatever the sources ask for.
    $<$<CXX_COMPILER_ID:Clang>:-Wno-pass-failed>)
  target_link_options(qel_flags INTERFACE -fsanitize=${QEL_SANITIZE})
endif()

# For shared objects: everything resolved at load, relocations read-only afterwards.
add_library(qel_hardened_link INTERFACE)
target_link_options(qel_hardened_link INTERFACE -Wl,-z,now -Wl,-z,relro -Wl,-z,noexecstack)
if(NOT QEL_SANITIZE)
  target_link_options(qel_hardened_link INTERFACE -Wl,-z,defs)
endif()
