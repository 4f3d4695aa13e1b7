# Cross build for 64-bit Windows with Debian's MinGW-w64; its programs run under Wine.
#   g++-mingw-w64-x86-64-posix libz-mingw-w64-dev, and for the tests googletest (a source package) and wine
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
find_program(TARNWICK_WINE NAMES wine wine64)
if(TARNWICK_WINE)
    set(CMAKE_CROSSCOMPILING_EMULATOR ${TARNWICK_WINE})
endif()

# The compiler's own runtime goes into each library, so that a folder with the three of them and the program runs anywhere.
# No time of the build goes in, and no symbols that strip would take out with a time of its own: the same sources give the
# same bytes.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static -s -Wl,--no-insert-timestamp")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static -s -Wl,--no-insert-timestamp")

set(ZLIB_USE_STATIC_LIBS ON)

# Of libraries that are headers alone, Windows reads those that Debian has installed for the machine that compiles. They come
# by links into a folder of their own, because that machine's C library has its headers beside them.
set(headers ${CMAKE_BINARY_DIR}/headers)
if(NOT CMAKE_BINARY_DIR MATCHES "CMakeTmp|CMakeScratch")
    file(MAKE_DIRECTORY ${headers}/include ${headers}/share/cmake ${headers}/lib/cmake)
    foreach(name IN ITEMS include/CLI include/easylogging++.h include/easylogging++.cc include/eigen3 include/fmt
                          include/kissfft include/nlohmann share/eigen3 share/cmake/CLI11 share/cmake/nlohmann_json)
        if(EXISTS /usr/${name})
            file(CREATE_LINK /usr/${name} ${headers}/${name} SYMBOLIC)
        endif()
    endforeach()
    foreach(name IN ITEMS fmt GTest)
        file(CREATE_LINK ${CMAKE_CURRENT_LIST_DIR}/${name} ${headers}/lib/cmake/${name} SYMBOLIC)
    endforeach()
endif()
set(CMAKE_FIND_ROOT_PATH ${headers} /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
