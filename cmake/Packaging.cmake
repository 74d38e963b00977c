# What the packages hold, and how they are made: `scripts/package` is the command for people.
#
# Two components, each a Debian package: "server" (bootlume) and "tools" (bootlume-tools).
set(package_source ${CMAKE_SOURCE_DIR}/packaging)

# The manuals bear the date of the changelog, not that of the build.
file(STRINGS ${package_source}/debian/changelog package_date REGEX "^ -- ")
list(POP_FRONT package_date package_date)
string(REGEX REPLACE "^.*>  " "" package_date "${package_date}")
execute_process(COMMAND date -d "${package_date}" +%s OUTPUT_VARIABLE package_epoch
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)

# package_compressed(OUTPUT INPUT COMMAND...): a gzip file as Debian wants it, without name or time.
function(package_compressed output input)
  add_custom_command(
    OUTPUT ${output}
    COMMAND bash -o pipefail -c
            "export SOURCE_DATE_EPOCH=${package_epoch}; ${ARGN} < '${input}' | gzip -9n > '${output}'"
    DEPENDS ${input}
    VERBATIM)
endfunction()

# The manual pages, where their compiler is installed.
find_program(SCDOC scdoc)
set(package_files)
function(package_manual component page section)
  if(NOT SCDOC)
    return()
  endif()
  set(output ${CMAKE_BINARY_DIR}/man/${page}.${section}.gz)
  package_compressed(${output} ${package_source}/man/${page}.${section}.scd ${SCDOC})
  install(FILES ${output} DESTINATION share/man/man${section} COMPONENT ${component})
  set(package_files ${package_files} ${output} PARENT_SCOPE)
endfunction()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/man)
package_manual(server bootlume 8)
package_manual(server bootlumectl 1)
package_manual(server trace_config 5)
package_manual(server bootlume-protocol 7)
if(TARGET bootlume-preview)
  package_manual(tools bootlume-preview 1)
endif()

# What every Debian package has in its folder below share/doc.
set(package_changelog ${CMAKE_BINARY_DIR}/packaging/changelog.Debian.gz)
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/packaging)
package_compressed(${package_changelog} ${package_source}/debian/changelog cat)
list(APPEND package_files ${package_changelog})
add_custom_target(package-files ALL DEPENDS ${package_files})

function(package_documents component name)
  install(FILES ${package_changelog} ${package_source}/debian/copyright
          DESTINATION share/doc/${name} COMPONENT ${component})
  if(EXISTS ${package_source}/debian/${name}.lintian-overrides)
    install(FILES ${package_source}/debian/${name}.lintian-overrides
            DESTINATION share/lintian/overrides COMPONENT ${component} RENAME ${name})
  endif()
endfunction()
package_documents(server bootlume)
package_documents(tools bootlume-tools)

# package_program(COMPONENT FOLDER TARGET): installs what is part of this build.
add_custom_target(package-contents DEPENDS ${package_files})
function(package_program component folder target)
  if(TARGET ${target})
    add_dependencies(package-contents ${target})
    install(TARGETS ${target} RUNTIME DESTINATION ${folder} COMPONENT ${component}
            LIBRARY DESTINATION ${folder} COMPONENT ${component})
  endif()
endfunction()
package_program(server sbin bootlume)
package_program(server bin bootlumectl)
package_program(tools bin bootlume-preview)
package_program(tools ${CMAKE_INSTALL_LIBDIR}/bootlume virtual-device)
package_program(tools ${CMAKE_INSTALL_LIBDIR}/bootlume cairo-recorder)

function(package_existing component destination)
  foreach(path ${ARGN})
    if(EXISTS ${path})
      install(FILES ${path} DESTINATION ${destination} COMPONENT ${component})
    endif()
  endforeach()
endfunction()
package_existing(server share/bash-completion/completions
  ${CMAKE_SOURCE_DIR}/tools/ctl/completion/bootlumectl)
package_existing(tools share/bootlume ${CMAKE_SOURCE_DIR}/tools/preview/catalogue.tsv)

# What programs talk to the splash with.
package_existing(tools include ${CMAKE_SOURCE_DIR}/tools/client/bootlume-client.h)
package_existing(tools lib/python3/dist-packages ${CMAKE_SOURCE_DIR}/tools/client/bootlume.py)
configure_file(${CMAKE_SOURCE_DIR}/tools/client/bootlume-client.pc.in
               ${CMAKE_BINARY_DIR}/packaging/bootlume-client.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/packaging/bootlume-client.pc DESTINATION share/pkgconfig
        COMPONENT tools)

install(FILES ${package_source}/systemd/bootlume.service
              ${package_source}/systemd/bootlume-quit.service
              ${package_source}/systemd/bootlume-quit@.service
        DESTINATION /lib/systemd/system COMPONENT server)
install(FILES ${package_source}/udev/70-bootlume.rules
        DESTINATION /lib/udev/rules.d COMPONENT server)
install(FILES ${package_source}/default/bootlume DESTINATION /etc/default COMPONENT server)
install(FILES ${package_source}/examples/trace_config
        DESTINATION share/doc/bootlume/examples COMPONENT server)

# The font configuration: links within /usr are relative in a package.
install(FILES ${package_source}/fontconfig/etc/fonts/fonts.conf
        DESTINATION share/bootlume/fontconfig/etc/fonts COMPONENT server)
install(CODE [[
  set(tree "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/share/bootlume/fontconfig")
  file(MAKE_DIRECTORY "${tree}/usr/share" "${tree}/usr/local/share" "${tree}/var/cache")
  file(CREATE_LINK ../../../../fonts "${tree}/usr/share/fonts" SYMBOLIC)
  file(CREATE_LINK ../../../../../../local/share/fonts "${tree}/usr/local/share/fonts" SYMBOLIC)
  file(CREATE_LINK /var/cache/fontconfig "${tree}/var/cache/fontconfig" SYMBOLIC)
]] COMPONENT server)

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL server tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_PACKAGE_CONTACT "The bootlume developers <bootlume@brem.example>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  # dpkg-shlibdeps knows the libraries of this machine only: what they were found to be there.
  set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "$ENV{BOOTLUME_SERVER_DEPENDS}")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "$ENV{BOOTLUME_TOOLS_DEPENDS}")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS "fontconfig")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "bootlume (= ${PROJECT_VERSION}-1)")
endif()

set(CPACK_DEBIAN_SERVER_PACKAGE_NAME bootlume)
set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SERVER_PACKAGE_RECOMMENDS "fonts-liberation, fonts-dejavu-core, fonts-droid-fallback")
set(CPACK_DEBIAN_SERVER_PACKAGE_SUGGESTS "bootlume-tools")
set(CPACK_COMPONENT_SERVER_DESCRIPTION "boot splash for a portrait V4L2 output overlay
The splash draws a title, lines of text and a turning ring on the overlay of a
480x800 display while a device starts. Other programs replace the texts or end
it over a socket; where it is asked to, it reboots a device whose start hangs.

This package holds the server, its client bootlumectl, the service units and
the manuals.")
set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA
    "${package_source}/debian/conffiles;${package_source}/debian/postinst;${package_source}/debian/prerm;${package_source}/debian/postrm")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME bootlume-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "preview of the boot splash on an ordinary computer
Shows the pages of the boot splash in a window, in a terminal or as pictures,
drawn by the real program on a virtual display, and checks a catalogue of
texts for lines that do not fit and glyphs that no font has.

This package holds the preview, the virtual device that it stands on, and an
example catalogue.")
include(CPack)
