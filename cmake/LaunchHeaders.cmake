# The child launch layer is this project's own code, in a folder whose name a system library uses as
# well. No file of ours may take a header of that folder from anywhere but utility-library/src.
add_custom_target(launch_headers ALL
  COMMAND ${CMAKE_COMMAND} -DROOT=${CMAKE_SOURCE_DIR}
          -P ${CMAKE_SOURCE_DIR}/cmake/CheckLaunchHeaders.cmake
  VERBATIM)
