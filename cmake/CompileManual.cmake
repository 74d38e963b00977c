# Compiles the manual SOURCE to PAGE by COMPILER with ARGUMENTS, and compresses it where the page's name ends
# so. Its date is that of the environment's SOURCE_DATE_EPOCH, or today.
if(PAGE MATCHES "[.]gz$")
  set(compress COMMAND gzip -9n)
endif()
separate_arguments(ARGUMENTS)
string(TIMESTAMP today "%Y-%m-%d" UTC)
set(ENV{MANUAL_DATE} ${today})
execute_process(COMMAND ${COMPILER} ${ARGUMENTS} ${compress} INPUT_FILE ${SOURCE} OUTPUT_FILE ${PAGE}
                COMMAND_ERROR_IS_FATAL ANY)
