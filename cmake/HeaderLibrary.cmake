# header_library(NAME HEADER PACKAGE): the target NAME::headers for a library that is nothing but
# headers. PACKAGE is its name in Debian, for the message where it is missing.
function(header_library name header package)
  if(TARGET ${name}::headers)
    return()
  endif()
  string(TOUPPER ${name}_INCLUDE_DIR variable)
  find_path(${variable} ${header} DOC "Folder with ${header}")
  if(NOT ${variable})
    message(FATAL_ERROR "The header ${header} of ${name} is not installed (in Debian: ${package}). "
                        "If it lies in a place of its own, say so with -D${variable}=FOLDER.")
  endif()
  add_library(${name}::headers INTERFACE IMPORTED GLOBAL)
  target_include_directories(${name}::headers INTERFACE ${${variable}})
endfunction()
