# The page of an interactive report, scripts and styles, as bytes inside the library. The repository holds the built bundle,
# so that a build needs no npm; .ci/report compares it with a fresh one. This file is also the script that writes the bytes:
#   cmake -DSCRIPT=report.js -DSTYLE=report.css -DOUTPUT=reportbundle.cpp -P Report.cmake
if(CMAKE_SCRIPT_MODE_FILE)
    # Base64 of the SHA-256 of a file, as a Content-Security-Policy names it.
    function(hash_of file result)
        set(digits ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/)
        file(SHA256 ${file} left)
        set(left ${left}00) # 32 bytes and one more are whole groups of three
        set(text "")
        while(NOT left STREQUAL "")
            string(SUBSTRING "${left}" 0 6 group)
            string(SUBSTRING "${left}" 6 -1 left)
            foreach(shift 18 12 6 0)
                math(EXPR digit "(0x${group} >> ${shift}) & 63")
                string(SUBSTRING ${digits} ${digit} 1 letter)
                string(APPEND text ${letter})
            endforeach()
        endwhile()
        string(SUBSTRING ${text} 0 43 text)
        set(${result} "sha256-${text}=" PARENT_SCOPE)
    endfunction()

    # An array: compilers need not take a string literal of more than 64 kB.
    function(bytes_of file result)
        file(READ ${file} text HEX)
        string(REGEX REPLACE "(................................)" "\\1\n" text "${text}")
        string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," text "${text}")
        set(${result} "${text}" PARENT_SCOPE)
    endfunction()

    hash_of(${SCRIPT} script_hash)
    hash_of(${STYLE} style_hash)
    bytes_of(${SCRIPT} script_bytes)
    bytes_of(${STYLE} style_bytes)
    file(WRITE ${OUTPUT} "// Written by cmake/Report.cmake.
#include \"workbench/plumbing/reportbundle.h\"

#include <string_view>

namespace Tarnwick::DSO::Workbench {
namespace {

const unsigned char kScript[] = {
${script_bytes}
};

const unsigned char kStyle[] = {
${style_bytes}
};

}  // namespace

BundledText ReportScript()
{
    return {{reinterpret_cast<const char*>(kScript), sizeof kScript}, \"${script_hash}\"};
}

BundledText ReportStyle()
{
    return {{reinterpret_cast<const char*>(kStyle), sizeof kStyle}, \"${style_hash}\"};
}

}  // namespace Tarnwick::DSO::Workbench
")
    return()
endif()

option(TARNWICK_BUILD_REPORT_BUNDLE "Build the page of the interactive report with npm instead of using the one in report/dist" OFF)

# Adds the source that implements workbench/plumbing/reportbundle.h.
function(tarnwick_report_bundle target)
    set(folder ${PROJECT_SOURCE_DIR}/report)
    set(bundle ${folder}/dist)
    if(TARNWICK_BUILD_REPORT_BUNDLE)
        find_program(TARNWICK_NPM npm REQUIRED)
        find_program(TARNWICK_NODE NAMES node nodejs REQUIRED)
        set(bundle ${CMAKE_CURRENT_BINARY_DIR}/report)
        set(installed ${CMAKE_CURRENT_BINARY_DIR}/report-packages.stamp)
        add_custom_command(OUTPUT ${installed}
                           COMMAND ${TARNWICK_NPM} ci --ignore-scripts
                           COMMAND ${CMAKE_COMMAND} -E touch ${installed}
                           DEPENDS ${folder}/package.json ${folder}/package-lock.json
                           WORKING_DIRECTORY ${folder} VERBATIM)
        file(GLOB sources CONFIGURE_DEPENDS ${folder}/src/*.ts ${folder}/src/*.css)
        add_custom_command(OUTPUT ${bundle}/report.js ${bundle}/report.css
                           COMMAND ${TARNWICK_NODE} build.mjs ${bundle}
                           DEPENDS ${installed} ${folder}/build.mjs ${folder}/LICENSES.txt ${sources}
                           WORKING_DIRECTORY ${folder} VERBATIM)
    endif()
    set(output ${CMAKE_CURRENT_BINARY_DIR}/reportbundle.cpp)
    set(writer ${PROJECT_SOURCE_DIR}/cmake/Report.cmake)
    add_custom_command(OUTPUT ${output}
                       COMMAND ${CMAKE_COMMAND} -DSCRIPT=${bundle}/report.js -DSTYLE=${bundle}/report.css -DOUTPUT=${output}
                               -P ${writer}
                       DEPENDS ${bundle}/report.js ${bundle}/report.css ${writer}
                       COMMENT "Writing the page of the interactive report" VERBATIM)
    target_sources(${target} PRIVATE ${output})
    # Its bytes alone: nothing of the headers that the target precompiles.
    set_source_files_properties(${output} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
endfunction()
