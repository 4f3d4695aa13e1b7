# Debian's compiled fmt is for the machine that compiles; its headers can do without.
if(NOT TARGET fmt::fmt)
    get_filename_component(fmt_headers ${CMAKE_CURRENT_LIST_DIR}/../../../include ABSOLUTE)
    add_library(fmt::fmt INTERFACE IMPORTED GLOBAL)
    target_include_directories(fmt::fmt INTERFACE ${fmt_headers})
    target_compile_definitions(fmt::fmt INTERFACE FMT_HEADER_ONLY=1)
endif()
