# Easylogging++ comes as a header and one source file; the framework library compiles that source and owns the storage.
find_path(TARNWICK_EASYLOGGING_INCLUDE easylogging++.h)
find_file(TARNWICK_EASYLOGGING_SOURCE easylogging++.cc PATHS ${TARNWICK_EASYLOGGING_INCLUDE} PATH_SUFFIXES include)
mark_as_advanced(TARNWICK_EASYLOGGING_INCLUDE TARNWICK_EASYLOGGING_SOURCE)
if(NOT TARNWICK_EASYLOGGING_INCLUDE OR NOT TARNWICK_EASYLOGGING_SOURCE)
    message(FATAL_ERROR "easylogging++.h or easylogging++.cc was not found (libeasyloggingpp-dev)")
endif()

# A host that shares the storage must be built with the same ones: they change the layout of its classes (threads), what
# the storage opens when it is made (no file) and who handles signals (the host).
set(TARNWICK_EASYLOGGING_DEFINITIONS
    ELPP_THREAD_SAFE ELPP_NO_DEFAULT_LOG_FILE ELPP_DISABLE_DEFAULT_CRASH_HANDLING ELPP_DISABLE_LOG_FILE_FROM_ARG)
