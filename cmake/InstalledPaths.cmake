# installed_paths(INPUT OUTPUT): a copy of a text that names this project's installed files. The text is
# written for the usual folders of a distribution; the copy names those of this build.
function(installed_paths input output)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${input})
  file(READ ${input} text)
  foreach(path IN ITEMS "/usr/sbin/bootlume=${CMAKE_INSTALL_FULL_SBINDIR}/bootlume"
                        "/usr/bin/bootlume=${CMAKE_INSTALL_FULL_BINDIR}/bootlume"
                        "/usr/libexec/bootlume=${CMAKE_INSTALL_FULL_LIBEXECDIR}/bootlume"
                        "/usr/lib/\\<architecture\\>/=${CMAKE_INSTALL_FULL_LIBDIR}/"
                        "/usr/share/bootlume=${CMAKE_INSTALL_FULL_DATADIR}/bootlume"
                        "/usr/share/bash-completion=${CMAKE_INSTALL_FULL_DATADIR}/bash-completion"
                        "/usr/share/doc/bootlume=${CMAKE_INSTALL_FULL_DOCDIR}"
                        "/etc/init.d/=${CMAKE_INSTALL_FULL_SYSCONFDIR}/init.d/"
                        "/etc/default/=${CMAKE_INSTALL_FULL_SYSCONFDIR}/default/")
    string(REGEX MATCH "^([^=]*)=(.*)$" path "${path}")
    string(REPLACE "${CMAKE_MATCH_1}" "${CMAKE_MATCH_2}" text "${text}")
  endforeach()
  file(WRITE ${output} "${text}")
endfunction()
