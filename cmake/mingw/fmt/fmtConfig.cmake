# Debian's compiled fmt is for the machine that compiles. Its headers alone would do, but each source that includes them would
# compile the whole of it.
if(NOT TARGET fmt::fmt)
    get_filename_component(fmt_headers ${CMAKE_CURRENT_LIST_DIR}/../../../include ABSOLUTE)
    add_library(tarnwick_fmt STATIC EXCLUDE_FROM_ALL ${CMAKE_CURRENT_LIST_DIR}/fmt.cpp)
    target_include_directories(tarnwick_fmt SYSTEM PUBLIC ${fmt_headers})
    add_library(fmt::fmt ALIAS tarnwick_fmt)
endif()
