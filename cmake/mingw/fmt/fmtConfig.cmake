# Debian's compiled fmt is for the machine that compiles. Its headers alone would do, but each source that includes them would
# compile the whole of it.
if(NOT TARGET fmt::fmt)
    get_filename_component(fmt_headers ${CMAKE_CURRENT_LIST_DIR}/../../../include ABSOLUTE)
    get_filename_component(fmt_source ${CMAKE_CURRENT_LIST_DIR}/fmt.cpp REALPATH)  # this folder is a link
    add_library(tarnwick_fmt STATIC EXCLUDE_FROM_ALL ${fmt_source})
    target_include_directories(tarnwick_fmt SYSTEM PUBLIC ${fmt_headers})
    add_library(fmt::fmt ALIAS tarnwick_fmt)
endif()
