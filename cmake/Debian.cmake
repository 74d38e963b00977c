# The Debian packages; `scripts/package` is the command for people.
#
# Two components, each a package: "server" (bootlume) and "tools" (bootlume-tools).

# What every Debian package has in its folder below share/doc.
set(changelog ${CMAKE_BINARY_DIR}/changelog.Debian.gz)
execute_process(COMMAND gzip -9n INPUT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
                OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)
function(debian_documents component package)
  install(FILES ${changelog} debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package}
          COMPONENT ${component})
  install(FILES debian/${package}.lintian-overrides RENAME ${package}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
endfunction()
debian_documents(server bootlume)
debian_documents(tools bootlume-tools)

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
    "${CMAKE_CURRENT_SOURCE_DIR}/debian/conffiles;${CMAKE_CURRENT_SOURCE_DIR}/debian/postinst;${CMAKE_CURRENT_SOURCE_DIR}/debian/prerm;${CMAKE_CURRENT_SOURCE_DIR}/debian/postrm")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME bootlume-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "preview of the boot splash on an ordinary computer
Shows the pages of the boot splash in a window, in a terminal or as pictures,
drawn by the real program on a virtual display, and checks a catalogue of
texts for lines that do not fit and glyphs that no font has.

This package holds the preview, the virtual device that it stands on, and an
example catalogue.")
include(CPack)
