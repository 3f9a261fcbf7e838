# qel_add_kernels(<target> <source>...) compiles each source once per processor level. Each copy lives
# in the namespace that QEL_LEVEL names and publishes one table of functions. The object libraries are
# called <target>_<level>; qel_kernel_objects(<variable> <target>...) lists them for linking.

# What the levels need of the compiler. Other processors than x86-64 have the lowest level alone,
# without vectors of their own.
set(QEL_LEVEL_FLAGS_sse2)
set(QEL_LEVEL_FLAGS_avx2 -mavx2 -mfma)
set(QEL_LEVEL_FLAGS_avx512 -mavx2 -mfma -mavx512f -mavx512bw -mavx512vl -mavx512dq)
set(QEL_LEVEL_FLAGS_avx512vbmi ${QEL_LEVEL_FLAGS_avx512} -mavx512vbmi -mavx512vnni)
set(known_levels sse2 avx2 avx512 avx512vbmi)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(default_levels ${known_levels})
else()
  set(default_levels sse2)
endif()
set(QEL_LEVELS "${default_levels}" CACHE STRING "Processor levels that are built, lowest first")
mark_as_advanced(QEL_LEVELS)
list(LENGTH QEL_LEVELS level_count)
list(SUBLIST known_levels 0 ${level_count} first_levels)
if(NOT "${QEL_LEVELS}" STREQUAL "${first_levels}" OR level_count EQUAL 0)
  message(FATAL_ERROR
    "QEL_LEVELS is \"${QEL_LEVELS}\", but must be the first ones of \"${known_levels}\"")
endif()
if(NOT "${QEL_LEVELS}" STREQUAL "${default_levels}")
  target_compile_definitions(qel_flags INTERFACE QEL_LEVEL_COUNT=${level_count})
endif()

# The AVX-512 levels for processors with AVX2 and FMA only, to test them there: the headers of that
# folder, put before the compiler's own, take the wide instructions apart.
option(QEL_EMULATE_AVX512 "Build the AVX-512 levels through SIMDe" OFF)
if(QEL_EMULATE_AVX512)
  foreach(level IN ITEMS avx512 avx512vbmi)
    set(QEL_LEVEL_FLAGS_${level} -mavx2 -mfma -Wno-psabi -DQEL_EMULATED_AVX512=1
      -isystem "${PROJECT_SOURCE_DIR}/tests/emulated")
  endforeach()
endif()

# Kernels are built for speed in every configuration, since plain loops count on the vectoriser; only
# under sanitizers, which look at every access anyway, for a short build.
set(optimisation -O3)
if(QEL_SANITIZE)
  set(optimisation -O1)
endif()
set(QEL_KERNEL_OPTIMISATION ${optimisation} CACHE STRING "Optimisation of the kernels")
mark_as_advanced(QEL_KERNEL_OPTIMISATION)

# All levels have the same sources: undefined arithmetic is looked for at the lowest, memory at the
# others. To look for both, or for temporaries that outlive their scope, takes several times as long.
list(GET QEL_LEVELS 0 lowest_level)
set(checks_of_memory)
if(QEL_SANITIZE MATCHES "address")
  set(checks_of_memory -fno-sanitize-address-use-after-scope)
endif()

function(qel_add_kernels target)
  foreach(level IN LISTS QEL_LEVELS)
    set(objects ${target}_${level})
    if(NOT TARGET ${objects})
      add_library(${objects} OBJECT)
      # The compiler inlines less in larger sources.
      set_target_properties(${objects} PROPERTIES UNITY_BUILD OFF)
      target_link_libraries(${objects} PRIVATE qel_flags)
      target_include_directories(${objects} PRIVATE "${PROJECT_SOURCE_DIR}")
      target_compile_definitions(${objects} PRIVATE QEL_LEVEL=${level} QEL_LEVEL_${level}=1)
      target_compile_options(${objects} PRIVATE ${QEL_LEVEL_FLAGS_${level}}
        ${QEL_KERNEL_OPTIMISATION})
      # GCC 12 takes the "undefined" vectors of its own header for a mistake.
      target_compile_options(${objects} PRIVATE
        $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized -Wno-maybe-uninitialized>)
      if(level STREQUAL lowest_level)
        set_target_properties(${objects} PROPERTIES QEL_UNCHECKED address)
      else()
        set_target_properties(${objects} PROPERTIES QEL_UNCHECKED undefined)
        target_compile_options(${objects} PRIVATE ${checks_of_memory})
        qel_precompile(${objects} kernels_${level} <immintrin.h>)
      endif()
    endif()
    list(TRANSFORM ARGN PREPEND "${PROJECT_SOURCE_DIR}/" OUTPUT_VARIABLE sources)
    target_sources(${objects} PRIVATE ${sources})
  endforeach()
endfunction()

function(qel_kernel_objects variable)
  set(all)
  foreach(target IN LISTS ARGN)
    foreach(level IN LISTS QEL_LEVELS)
      if(TARGET ${target}_${level})
        list(APPEND all ${target}_${level})
      endif()
    endforeach()
  endforeach()
  set(${variable} ${all} PARENT_SCOPE)
endfunction()
