# Fails where a source of ours includes a launch layer header that utility-library/src does not hold.
file(GLOB_RECURSE sources
  ${ROOT}/utility-library/*.h ${ROOT}/utility-library/*.cpp ${ROOT}/bootlume/*.h
  ${ROOT}/bootlume/*.cpp ${ROOT}/tools/*.h ${ROOT}/tools/*.cpp ${ROOT}/fuzz/*.cpp)
foreach(source IN LISTS sources)
  file(STRINGS ${source} lines REGEX "^[ \t]*#[ \t]*include[ \t]*[<\"]boost/process")
  foreach(line IN LISTS lines)
    string(REGEX REPLACE ".*[<\"](boost/process[^>\"]*)[>\"].*" "\\1" header "${line}")
    if(NOT EXISTS ${ROOT}/utility-library/src/${header})
      message(FATAL_ERROR "${source} includes ${header}, which is not this project's own header")
    endif()
  endforeach()
endforeach()
