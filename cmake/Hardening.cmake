# Hardened as a distribution hardens its programs.
add_library(project_hardening INTERFACE)
target_compile_options(project_hardening INTERFACE -fstack-protector-strong)
target_link_options(project_hardening INTERFACE -Wl,-z,relro,-z,now)
if(CMAKE_BUILD_TYPE MATCHES "Rel" AND NOT BOOTLUME_SANITIZE)
  target_compile_options(project_hardening INTERFACE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()
include(CheckPIESupported)
check_pie_supported()

# What every product links: warnings, hardening and, where asked for, link-time optimisation.
function(project_product target)
  target_link_libraries(${target} PRIVATE project_warnings project_hardening)
  if(BOOTLUME_LTO AND NOT BOOTLUME_SANITIZE AND NOT BOOTLUME_COVERAGE)
    set_target_properties(${target} PROPERTIES INTERPROCEDURAL_OPTIMIZATION ON)
  endif()
endfunction()
