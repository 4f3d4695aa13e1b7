# Installs BUILD_DIR, then moves what was installed to PREFIX: nothing in it may depend on where it was put first.
file(REMOVE_RECURSE ${PREFIX} ${PREFIX}-first)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG} --prefix ${PREFIX}-first
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${PREFIX}-first ${PREFIX})
