# early_symbols(TARGET): a program that starts sooner. The dynamic linker looks a name up in one library
# after the other, in the order in which they were linked, and most names by far lie in these two. Call
# it before anything else is linked. The sanitizers' own libraries have to come before all others.
function(early_symbols target)
  if(NOT BOOTLUME_SANITIZE)
    target_link_libraries(${target} PRIVATE -lstdc++ -l:libc.so.6)
  endif()
endfunction()
