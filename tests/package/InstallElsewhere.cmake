# Installs BUILD_DIR, then moves what was installed to PREFIX: nothing in it may depend on where it was put first.
file(REMOVE_RECURSE ${PREFIX} ${PREFIX}-first)
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --config ${CONFIG} --prefix ${PREFIX}-first
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
file(RENAME ${PREFIX}-first ${PREFIX})
if(PAGES)
    foreach(page IN ITEMS man/man1/tarnwick.1 bash-completion/completions/tarnwick zsh/site-functions/_tarnwick
                          fish/vendor_completions.d/tarnwick.fish)
        if(NOT EXISTS ${PREFIX}/share/${page})
            message(FATAL_ERROR "share/${page} was not installed")
        endif()
    endforeach()
endif()
