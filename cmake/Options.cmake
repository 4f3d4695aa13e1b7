# Compile options of everything that is built here; nothing of this reaches a host that links the libraries.
if(TARNWICK_SANITIZE)
    add_compile_options(-fsanitize=${TARNWICK_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${TARNWICK_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        add_compile_options(-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitizer-ignorelist.txt)
    endif()
endif()

# g++ searches its memory for what it no longer needs from 128 MB on, which a precompiled header all but fills: the search is
# up to a sixth of the time then. From 512 MB on, a group that took 460 MB takes 560, and its object is the same.
function(tarnwick_memory target)
    target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,GNU>:--param=ggc-min-heapsize=524288>)
endfunction()

function(tarnwick_options target)
    tarnwick_memory(${target})
    set_target_properties(${target} PROPERTIES CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 /wd4251 $<$<BOOL:${TARNWICK_WARNINGS_AS_ERRORS}>:/WX>)
        target_compile_definitions(${target} PRIVATE _USE_MATH_DEFINES NOMINMAX)
    else()
        # Log lines name their source file from the top of this tree, wherever it was built.
        target_compile_options(${target} PRIVATE -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
        # Sign conversion: clang counts it into -Wconversion, g++ does not. It is asked of neither.
        target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wno-sign-conversion
                               $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
                               $<$<BOOL:${TARNWICK_WARNINGS_AS_ERRORS}>:-Werror>)
    endif()
endfunction()

# The same for C, which only tests and examples are written in: C11 and nothing beyond it.
function(tarnwick_c_options target)
    set_target_properties(${target} PROPERTIES C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF)
    if(MSVC)
        target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${TARNWICK_WARNINGS_AS_ERRORS}>:/WX>)
    else()
        target_compile_options(${target} PRIVATE -Wall -Wextra -pedantic $<$<BOOL:${TARNWICK_WARNINGS_AS_ERRORS}>:-Werror>)
    endif()
    # What sanitizers need of C++ comes with that language's linker.
    if(TARNWICK_SANITIZE)
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE CXX)
    endif()
endfunction()

# Headers that most sources of a target include, read once. The tidy preset does without, and so shows that each source
# includes what it uses.
function(tarnwick_precompile target)
    if(PROJECT_IS_TOP_LEVEL AND NOT MSVC)
        target_precompile_headers(${target} PRIVATE ${ARGN})
        # ccache reads preprocessed sources, which g++ writes with the precompiled header only when told to; clang's header
        # is the same from build to build only without the time.
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
                               "$<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>")
    endif()
endfunction()

# The same headers as another target that is compiled with the same options.
function(tarnwick_precompile_as target other)
    if(PROJECT_IS_TOP_LEVEL AND NOT MSVC)
        target_precompile_headers(${target} REUSE_FROM ${other})
        target_compile_options(${target} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>)
    endif()
endfunction()

# Headers for several libraries to take by tarnwick_precompile_as: a target of their own, because the compiler refuses them
# where a definition that they were read with is missing, and each library has one that says it is being built.
#   tarnwick_headers(TARGET HEADER... [LIBRARIES LIBRARY...])      the libraries whose headers they are
function(tarnwick_headers target)
    cmake_parse_arguments(PARSE_ARGV 1 headers "" "" LIBRARIES)
    if(PROJECT_IS_TOP_LEVEL AND NOT MSVC)
        set(source ${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp)
        file(CONFIGURE OUTPUT ${source} CONTENT "")
        add_library(${target} OBJECT EXCLUDE_FROM_ALL ${source})
        tarnwick_options(${target})
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
        target_link_libraries(${target} PRIVATE ${headers_LIBRARIES})
        tarnwick_precompile(${target} ${headers_UNPARSED_ARGUMENTS})
    endif()
endfunction()

# Sources of a target that are compiled as one where TARNWICK_UNITY asks for it: what all of them include and instantiate is
# then paid for once. Names in their anonymous namespaces must differ. Each still stands by itself, which the presets without
# it show.
function(tarnwick_unity target group)
    if(TARNWICK_UNITY)
        set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
        # A name of one source may hide one of another, which clang takes for a shadow; the presets without groups ask.
        target_compile_options(${target} PRIVATE $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wno-shadow>)
        set_source_files_properties(${ARGN} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${group})
    endif()
endfunction()
