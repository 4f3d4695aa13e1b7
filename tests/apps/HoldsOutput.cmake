# Fails unless FILE holds, word for word, what PROGRAM prints with ARGUMENTS.
file(READ ${FILE} content)
separate_arguments(arguments UNIX_COMMAND "${ARGUMENTS}")
execute_process(COMMAND ${PROGRAM} ${arguments} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
string(FIND "${content}" "${output}" at)
if(output STREQUAL "" OR at EQUAL -1)
    message(FATAL_ERROR "${FILE} does not hold what ${PROGRAM} ${ARGUMENTS} prints:\n${output}")
endif()
