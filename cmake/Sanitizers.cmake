# Sanitizers and coverage apply to the whole build, libraries and tests alike.
if(BOOTLUME_SANITIZE)
  # Less optimization: a report shows the calls that were made, and the build takes half of the time.
  add_compile_options(-fsanitize=${BOOTLUME_SANITIZE} -fno-omit-frame-pointer
                      -fno-sanitize-recover=all -O1)
  add_link_options(-fsanitize=${BOOTLUME_SANITIZE})
  if(BOOTLUME_SANITIZE MATCHES "undefined")
    # This check opens a pipe of its own, and cries wolf where the tests leave no descriptor free.
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()
if(BOOTLUME_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()
