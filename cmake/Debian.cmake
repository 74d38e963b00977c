# The Debian packages; `scripts/package` is the command for people.
#
# Each component is a package: "service" is bootlume, which starts the splash at the boot, "programs" is
# bootlume-bin, "tools" is bootlume-tools, "development" is bootlume-dev, and "initramfs" is bootlume-initramfs.

# What every Debian package has in its folder below share/doc.
set(changelog ${CMAKE_BINARY_DIR}/changelog.Debian.gz)
execute_process(COMMAND gzip -9n INPUT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/debian/changelog
                OUTPUT_FILE ${changelog} COMMAND_ERROR_IS_FATAL ANY)

# debian_package(COMPONENT NAME SECTION DESCRIPTION FIELD VALUE...): the fields are those of the package's
# control file, as CPack calls them.
function(debian_package component name section description)
  install(FILES ${changelog} debian/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${name}
          COMPONENT ${component})
  install(FILES debian/${name}.lintian-overrides RENAME ${name}
          DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides COMPONENT ${component})
  string(TOUPPER ${component} component)
  set(CPACK_COMPONENT_${component}_DESCRIPTION "${description}" PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${component}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  while(ARGN)
    list(POP_FRONT ARGN field value)
    set(CPACK_DEBIAN_${component}_${field} "${value}" PARENT_SCOPE)
  endwhile()
endfunction()

set(version ${PROJECT_VERSION}-1)
# dpkg-shlibdeps knows the libraries of this machine only: for another, what they were found to be here.
set(programs_need "fontconfig")
set(tools_need "bootlume-bin (= ${version})")
if(CMAKE_CROSSCOMPILING)
  set(programs_need "$ENV{BOOTLUME_PROGRAMS_DEPENDS}")
  set(tools_need "$ENV{BOOTLUME_TOOLS_DEPENDS}")
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

debian_package(service bootlume admin
"boot splash for a portrait V4L2 output overlay
The splash draws a title, lines of text and a turning ring on the overlay of a
480x800 display while a device starts.

This package shows it at the next boot of the machine that it is installed on:
it holds the service, the units that end it, and the service's settings."
  PACKAGE_DEPENDS "bootlume-bin (= ${version})")
set(scripts ${CMAKE_CURRENT_SOURCE_DIR}/debian)
set(CPACK_DEBIAN_SERVICE_PACKAGE_CONTROL_EXTRA
    ${scripts}/conffiles ${scripts}/postinst ${scripts}/prerm ${scripts}/postrm)
debian_package(programs bootlume-bin admin
"programs of the boot splash for a portrait V4L2 output overlay
The splash draws a title, lines of text and a turning ring on the overlay of a
480x800 display while a device starts. Other programs replace the texts or end
it over a socket; if it is asked to, it reboots a device whose start hangs.

This package holds the server, its client bootlumectl, a Python module and the
manuals. It starts nothing by itself: the package bootlume does."
  PACKAGE_DEPENDS "${programs_need}"
  PACKAGE_RECOMMENDS "fonts-liberation, fonts-dejavu-core, fonts-droid-fallback"
  PACKAGE_SUGGESTS "bootlume, bootlume-tools, python3"
  PACKAGE_BREAKS "bootlume (<< 1.1.0-1), bootlume-tools (<< 1.1.0-1)"
  PACKAGE_REPLACES "bootlume (<< 1.1.0-1), bootlume-tools (<< 1.1.0-1)"
  DEBUGINFO_PACKAGE ON)
set(CPACK_DEBIAN_PROGRAMS_PACKAGE_CONTROL_EXTRA ${scripts}/programs/postinst ${scripts}/programs/triggers)
debian_package(initramfs bootlume-initramfs admin
"boot splash from the last step of the initramfs
The splash is started in the real root file system just before the init
system, in half of the time that its service takes to start it.

This package holds a hook that puts the display's driver and the rules that
name its device into the initramfs, and the script that starts the splash."
  PACKAGE_ARCHITECTURE all
  PACKAGE_SHLIBDEPS OFF
  PACKAGE_DEPENDS "bootlume (>= ${version}), initramfs-tools, udev")
set(CPACK_DEBIAN_INITRAMFS_PACKAGE_CONTROL_EXTRA ${scripts}/initramfs/triggers)
debian_package(tools bootlume-tools graphics
"preview of the boot splash on an ordinary computer
Shows the pages of the boot splash in a window, in a terminal or as pictures,
drawn by the real program on a virtual display, and checks a catalogue of
texts for lines that do not fit and glyphs that no font has.

This package holds the preview, the virtual device that it stands on, and an
example catalogue."
  PACKAGE_DEPENDS "${tools_need}"
  DEBUGINFO_PACKAGE ON)
debian_package(development bootlume-dev libdevel
"header for programs that talk to the boot splash
One header for C and C++, and its pkg-config file, for programs that replace
the texts of the boot splash or end it."
  PACKAGE_SUGGESTS "bootlume-bin (= ${version})"
  PACKAGE_BREAKS "bootlume-tools (<< 1.1.0-1)"
  PACKAGE_REPLACES "bootlume-tools (<< 1.1.0-1)")

set(CPACK_GENERATOR DEB)
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL service programs initramfs tools development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_OBJCOPY_EXECUTABLE ${CMAKE_OBJCOPY})
set(CPACK_READELF_EXECUTABLE ${CMAKE_READELF})
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
endif()
include(CPack)
