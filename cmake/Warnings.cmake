# The warnings that every target of ours is built with. The project's own presets take them for errors: a
# place that must break one switches it off on the spot, with its reason.
add_library(project_warnings INTERFACE)
target_compile_options(project_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnull-dereference -Wformat=2
  $<$<BOOL:${BOOTLUME_WERROR}>:-Werror>
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast>
  $<$<COMPILE_LANGUAGE:CXX>:-Woverloaded-virtual>)

# Trace lines and assertions name a file by its path from the root, whatever the build folder.
add_compile_options(-fmacro-prefix-map=${CMAKE_SOURCE_DIR}/= -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)

# Assertions stand in every build: a programming error must not go on as if it were none.
add_compile_options(-UNDEBUG)
