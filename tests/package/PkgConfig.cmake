# Compiles SOURCE with the flags that pkg-config gives for the package under PREFIX, runs it.
set(ENV{PKG_CONFIG_PATH} ${PREFIX}/${LIBDIR}/pkgconfig)
execute_process(COMMAND ${PKG_CONFIG} --cflags --libs tarnwick-filters
                OUTPUT_VARIABLE package_flags OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(package_flags UNIX_COMMAND "${package_flags}")
separate_arguments(extra_flags UNIX_COMMAND "${EXTRA_FLAGS}")
execute_process(COMMAND ${COMPILER} -std=c++20 ${extra_flags} ${SOURCE} -o ${PROGRAM} ${package_flags}
                COMMAND_ERROR_IS_FATAL ANY)
set(ENV{LD_LIBRARY_PATH} "${PREFIX}/${LIBDIR}:$ENV{LD_LIBRARY_PATH}")
execute_process(COMMAND ${PROGRAM} COMMAND_ERROR_IS_FATAL ANY)
