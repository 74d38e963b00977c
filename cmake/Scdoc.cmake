# Compiles the manual SOURCE to PAGE, and compresses it where the page's name ends so. Its date is that of
# the environment's SOURCE_DATE_EPOCH, or today.
if(PAGE MATCHES "[.]gz$")
  set(compress COMMAND gzip -9n)
endif()
execute_process(COMMAND ${SCDOC} ${compress} INPUT_FILE ${SOURCE} OUTPUT_FILE ${PAGE}
                COMMAND_ERROR_IS_FATAL ANY)
