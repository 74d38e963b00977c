# What draws the page, as the program links it: the system's shared library, or, in a self-contained build,
# an archive of it and of all that it stands on. Only the C library and the mathematical one stay shared.
#
# The archives are named one by one and in their order: what cairo's own list names besides serves other
# kinds of pictures, of which nothing is linked.
add_library(project_cairo INTERFACE)
if(BOOTLUME_SELF_CONTAINED)
  target_include_directories(project_cairo SYSTEM INTERFACE ${CAIRO_INCLUDE_DIRS})
  target_link_options(project_cairo INTERFACE -static-libstdc++ -static-libgcc -Wl,--gc-sections)
  target_link_libraries(project_cairo INTERFACE
    "-Wl,-Bstatic -lcairo -lpixman-1 -lfontconfig -lfreetype -lpng16 -lexpat -lz -lbrotlidec -lbrotlicommon -Wl,-Bdynamic -lm")
else()
  target_link_libraries(project_cairo INTERFACE PkgConfig::CAIRO)
endif()
