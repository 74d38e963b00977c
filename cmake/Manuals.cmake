# Manual pages, where the compilers of their languages are installed.
find_program(SCDOC scdoc)
if(NOT SCDOC)
  message(STATUS "scdoc is not installed: there will be no manuals")
endif()
find_program(LOWDOWN lowdown)
if(NOT LOWDOWN)
  message(STATUS "lowdown is not installed: there will be no bootlume-troubleshooting(7)")
endif()

function(compile_manual page source compiler arguments component)
  string(REGEX REPLACE ".*[.]" "" section ${page})
  set(output ${CMAKE_BINARY_DIR}/man/${page})
  if(BOOTLUME_DEBIAN)
    string(APPEND output .gz)
  endif()
  file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
  add_custom_command(OUTPUT ${output}
    COMMAND ${CMAKE_COMMAND} -D COMPILER=${compiler} -D "ARGUMENTS=${arguments}" -D SOURCE=${source}
            -D PAGE=${output} -P ${CMAKE_SOURCE_DIR}/cmake/CompileManual.cmake
    DEPENDS ${source} ${compiler} ${CMAKE_SOURCE_DIR}/cmake/CompileManual.cmake
    VERBATIM)
  add_custom_target(manual-${page} ALL DEPENDS ${output})
  install(FILES ${output} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
endfunction()

# install_manual(PAGE.SECTION COMPONENT): of the source of that name in the folder man.
function(install_manual page component)
  if(SCDOC)
    set(source ${CMAKE_BINARY_DIR}/man/${page}.scd)
    installed_paths(${CMAKE_CURRENT_SOURCE_DIR}/man/${page}.scd ${source})
    compile_manual(${page} ${source} ${SCDOC} "" ${component})
  endif()
endfunction()

# install_guide(PAGE.SECTION COMPONENT TEXT): of a Markdown text.
function(install_guide page component text)
  if(LOWDOWN)
    string(REPLACE "." " " name_and_section ${page})
    set(source ${CMAKE_BINARY_DIR}/man/${page}.md)
    installed_paths(${text} ${source})
    compile_manual(${page} ${source} ${CMAKE_CURRENT_SOURCE_DIR}/man/from_markdown.sh
                   "${name_and_section} Miscellaneous" ${component})
  endif()
endfunction()
