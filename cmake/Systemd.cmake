# Where systemd and udev look for what a package brings: as their pkg-config files say for an
# installation into /usr, and below any other prefix where they look as well.
function(package_folder variable module key default)
  set(folder ${CMAKE_INSTALL_PREFIX}/${default})
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    pkg_get_variable(told ${module} ${key})
    # Some versions put the sysroot in front of what they tell.
    string(REPLACE "$ENV{PKG_CONFIG_SYSROOT_DIR}/" "/" told "${told}")
    if(told)
      set(folder ${told})
    endif()
  endif()
  set(${variable} ${folder} CACHE STRING "What ${module} calls its ${key}")
endfunction()
package_folder(BOOTLUME_UNIT_DIR systemd systemd_system_unit_dir lib/systemd/system)
package_folder(BOOTLUME_TMPFILES_DIR systemd tmpfilesdir lib/tmpfiles.d)
package_folder(BOOTLUME_UDEV_DIR udev udevdir lib/udev)

function(install_unit unit)
  installed_paths(${CMAKE_CURRENT_SOURCE_DIR}/systemd/${unit} ${CMAKE_BINARY_DIR}/systemd/${unit})
  install(FILES ${CMAKE_BINARY_DIR}/systemd/${unit} DESTINATION ${BOOTLUME_UNIT_DIR}
          COMPONENT service)
endfunction()
