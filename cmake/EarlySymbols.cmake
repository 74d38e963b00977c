# early_symbols(TARGET): a program that starts sooner. The dynamic linker looks a name up in one library
# after the other, in the order in which they were linked, and most names by far lie in these two. Call
# it before anything else is linked. The sanitizers' own libraries have to come before all others.
#
# The C library goes by its file, which the linker cannot move to the end: that of glibc, or that of
# musl. In a static program there is nothing to look up, and neither can be linked.
include(CheckCXXSourceCompiles)
set(BOOTLUME_EARLY_LIBRARIES)
foreach(library libc.so.6 libc.so)
  if(NOT BOOTLUME_EARLY_LIBRARIES)
    string(MAKE_C_IDENTIFIER ${library} variable)
    set(variable BOOTLUME_LINKS_${variable})
    set(CMAKE_REQUIRED_LIBRARIES -lstdc++ -l:${library})
    check_cxx_source_compiles("#include <string>
#ifndef __GLIBCXX__
#error another C++ library
#endif
int main() { return 0; }" ${variable})
    unset(CMAKE_REQUIRED_LIBRARIES)
    if(${variable})
      set(BOOTLUME_EARLY_LIBRARIES -lstdc++ -l:${library})
    endif()
  endif()
endforeach()

function(early_symbols target)
  if(NOT BOOTLUME_SANITIZE AND NOT BOOTLUME_SELF_CONTAINED)
    target_link_libraries(${target} PRIVATE ${BOOTLUME_EARLY_LIBRARIES})
  endif()
endfunction()
