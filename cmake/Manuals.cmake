# install_manual(PAGE.SECTION COMPONENT): a manual page, where the compiler of its language is installed.
find_program(SCDOC scdoc)
if(NOT SCDOC)
  message(STATUS "scdoc is not installed: there will be no manuals")
endif()

function(install_manual page component)
  if(NOT SCDOC)
    return()
  endif()
  string(REGEX REPLACE ".*[.]" "" section ${page})
  set(source ${CMAKE_BINARY_DIR}/man/${page}.scd)
  set(output ${CMAKE_BINARY_DIR}/man/${page})
  if(BOOTLUME_DEBIAN)
    string(APPEND output .gz)
  endif()
  installed_paths(${CMAKE_CURRENT_SOURCE_DIR}/man/${page}.scd ${source})
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -D SCDOC=${SCDOC} -D SOURCE=${source} -D PAGE=${output}
            -P ${CMAKE_SOURCE_DIR}/cmake/Scdoc.cmake
    DEPENDS ${source} ${CMAKE_SOURCE_DIR}/cmake/Scdoc.cmake
    VERBATIM)
  add_custom_target(manual-${page} ALL DEPENDS ${output})
  install(FILES ${output} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()
