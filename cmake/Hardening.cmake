# Hardened as a distribution hardens its programs. The level of fortified calls is the integrator's,
# where the compiler's flags name one.
add_library(project_hardening INTERFACE)
target_compile_options(project_hardening INTERFACE -fstack-protector-strong)
target_link_options(project_hardening INTERFACE -Wl,-z,relro,-z,now)
if(NOT BOOTLUME_SANITIZE AND NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE")
  target_compile_options(project_hardening INTERFACE
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
    $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()
include(CheckPIESupported)
check_pie_supported()

# Times and file sizes have 64 bits on a 32-bit processor, too, whatever else the compiler is told: a
# splash in 2040 keeps its pace. What talks to a driver keeps the driver's layout by itself.
add_library(project_time64 INTERFACE)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  target_compile_options(project_time64 INTERFACE -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)
endif()

# What every product links: warnings, hardening and, where asked for, link-time optimisation.
function(project_product target)
  target_link_libraries(${target} PRIVATE project_warnings project_hardening)
  if(BOOTLUME_LTO AND NOT BOOTLUME_SANITIZE AND NOT BOOTLUME_COVERAGE)
    set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
  endif()
endfunction()

# project_preload(TARGET): a library that comes before the C library's own calls. It defines functions
# that flags of the whole build would give other names (64-bit offsets and times) or bodies (the
# fortified headers), and it is never instrumented: it comes before the sanitizers' own calls, too.
function(project_preload target)
  target_compile_options(${target} PRIVATE -fno-sanitize=all -fstack-protector-strong
                         -U_FORTIFY_SOURCE -U_FILE_OFFSET_BITS -U_TIME_BITS)
  target_link_options(${target} PRIVATE -fno-sanitize=all)
  set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION OFF)
endfunction()
