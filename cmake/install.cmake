# Install rules for the library and its documents. Those of the program are in programs/tavik, those of the plug-in in
# gstreamer. Components: runtime, development, tools, gstreamer.
include(CMakePackageConfigHelpers)

install(TARGETS tavik EXPORT tavik LIBRARY COMPONENT runtime NAMELINK_COMPONENT development)
foreach(level x86-64-v2 x86-64-v3)
    if(TARGET tavik_${level})
        install(TARGETS tavik_${level} LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/${level}
                COMPONENT runtime NAMELINK_SKIP)
    endif()
endforeach()

install(TARGETS tavik_static EXPORT tavik ARCHIVE COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/include/tavik.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

install(EXPORT tavik NAMESPACE tavik:: FILE tavik-config.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavik
        COMPONENT development)
write_basic_package_version_file(tavik-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavik-config-version.cmake DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/tavik
        COMPONENT development)

# The prefix is relative to the .pc file, so that the tree can be moved. Distributions set an absolute one, so that
# pkg-config can omit directories that compilers search by default.
if(NOT TAVIK_PKG_CONFIG_PREFIX)
    if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
        message(FATAL_ERROR "CMAKE_INSTALL_LIBDIR and CMAKE_INSTALL_INCLUDEDIR must be relative to the prefix")
    endif()
    file(RELATIVE_PATH prefix_from_pc_file /usr/${CMAKE_INSTALL_LIBDIR}/pkgconfig /usr)
    set(TAVIK_PKG_CONFIG_PREFIX \${pcfiledir}/${prefix_from_pc_file})
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/tavik.pc.in tavik.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavik.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)

# The layout of the source tree is kept, so that links between documents work.
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs ${PROJECT_SOURCE_DIR}/examples DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT development FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN *.c)
