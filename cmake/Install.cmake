include(CMakePackageConfigHelpers)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/TarnwickFilters)

# What is installed finds its own libraries wherever the prefix is moved to.
if(APPLE)
    set(origin "@loader_path")
else()
    set(origin "$ORIGIN")
endif()
set(installed_libraries tarnwick_framework tarnwick_filters)
set(installed_folders ${PROJECT_SOURCE_DIR}/backend/framework ${PROJECT_SOURCE_DIR}/backend/filters)
if(TARNWICK_BUILD_WORKBENCH)
    list(APPEND installed_libraries tarnwick_workbench)
    list(APPEND installed_folders ${PROJECT_SOURCE_DIR}/backend/workbench)
endif()
set_target_properties(${installed_libraries} PROPERTIES INSTALL_RPATH "${origin}")

install(TARGETS ${installed_libraries} EXPORT TarnwickFiltersTargets
        RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarnwick)
install(DIRECTORY ${installed_folders}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tarnwick
        FILES_MATCHING PATTERN "*.h"
        PATTERN "plumbing" EXCLUDE
        PATTERN "stages" EXCLUDE)
install(FILES LICENSE NOTICE DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(TARNWICK_BUILD_APPS)
    file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
    set_target_properties(tarnwick PROPERTIES INSTALL_RPATH "${origin}/${bin_to_lib}")
    install(TARGETS tarnwick RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
    # The manual page and the shells' completions, as the program prints them.
    if(UNIX AND NOT CMAKE_CROSSCOMPILING)
        set(pages ${CMAKE_CURRENT_BINARY_DIR}/pages)
        file(MAKE_DIRECTORY ${pages})
        set(printed "")
        foreach(page IN ITEMS "manual:tarnwick.1" "completion bash:tarnwick.bash" "completion zsh:_tarnwick"
                              "completion fish:tarnwick.fish")
            string(REGEX MATCH "^(.*):(.*)$" page "${page}")
            set(file ${pages}/${CMAKE_MATCH_2})
            separate_arguments(arguments UNIX_COMMAND "${CMAKE_MATCH_1}")
            add_custom_command(OUTPUT ${file} COMMAND tarnwick ${arguments} > ${file} DEPENDS tarnwick VERBATIM)
            list(APPEND printed ${file})
        endforeach()
        add_custom_target(tarnwick_pages ALL DEPENDS ${printed})
        install(FILES ${pages}/tarnwick.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
        install(FILES ${pages}/tarnwick.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
                RENAME tarnwick)
        install(FILES ${pages}/_tarnwick DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
        install(FILES ${pages}/tarnwick.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d)
    endif()
endif()

install(EXPORT TarnwickFiltersTargets NAMESPACE Tarnwick:: DESTINATION ${package_dir})
configure_package_config_file(cmake/TarnwickFiltersConfig.cmake.in TarnwickFiltersConfig.cmake
                              INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(TarnwickFiltersConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TarnwickFiltersConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/TarnwickFiltersConfigVersion.cmake
        DESTINATION ${package_dir})

# The prefix in the pkg-config file is worked out from where the file lies, unless the directories were given absolute.
if(IS_ABSOLUTE ${CMAKE_INSTALL_LIBDIR} OR IS_ABSOLUTE ${CMAKE_INSTALL_INCLUDEDIR})
    set(pc_prefix ${CMAKE_INSTALL_PREFIX})
    set(pc_includedir ${CMAKE_INSTALL_FULL_INCLUDEDIR})
    set(pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR})
else()
    file(RELATIVE_PATH pc_to_prefix /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
    string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
    set(pc_prefix "\${pcfiledir}/${pc_to_prefix}")
    set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
    set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
endif()
list(TRANSFORM TARNWICK_EASYLOGGING_DEFINITIONS PREPEND -D OUTPUT_VARIABLE pc_definitions)
list(JOIN pc_definitions " " pc_definitions)
configure_file(cmake/tarnwick-filters.pc.in tarnwick-filters.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tarnwick-filters.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
