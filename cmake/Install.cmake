# What `cmake --install` brings: the library, its public headers, and what find_package(Tessarin) reads.
include(CMakePackageConfigHelpers)
set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/Tessarin)

install(TARGETS tessarin tessarin_queues EXPORT TessarinTargets)
install(EXPORT TessarinTargets NAMESPACE Tessarin:: DESTINATION ${package_folder})

# check_layers.py knows the same exceptions, and refuses public headers that include one.
install(DIRECTORY Tessarin/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tessarin
  FILES_MATCHING PATTERN "*.h" PATTERN "*.inl"
  PATTERN "platform/sqlite" EXCLUDE
  PATTERN "engine" EXCLUDE
  PATTERN "*Private.h" EXCLUDE)
# For those who have the toolkit: <Tessarin/integration/gtk/GLibMainQueue.h>.
install(DIRECTORY integration DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tessarin FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_BINARY_DIR}/include/Tessarin/Version.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Tessarin)

configure_package_config_file(cmake/TessarinConfig.cmake.in TessarinConfig.cmake INSTALL_DESTINATION ${package_folder})
# Before 1.0 a new minor version may change what is there.
write_basic_package_version_file(TessarinConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TessarinConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/TessarinConfigVersion.cmake
  DESTINATION ${package_folder})

# gdb finds what shows our values beside the library, in a folder that it trusts; under /usr it looks where distributions put
# such files. The library's own file counts, not the links to it.
set(printers libtessarin.so.${PROJECT_VERSION}-gdb.py)
install(FILES integration/gdb/tessarin-gdb.py DESTINATION ${CMAKE_INSTALL_LIBDIR} RENAME ${printers} COMPONENT gdb)
install(CODE "
  if(CMAKE_INSTALL_PREFIX STREQUAL \"/usr\")
    file(INSTALL \"${PROJECT_SOURCE_DIR}/integration/gdb/tessarin-gdb.py\" RENAME \"${printers}\"
      DESTINATION \"/usr/share/gdb/auto-load/usr/${CMAKE_INSTALL_LIBDIR}\")
  endif()" COMPONENT gdb)
# The same in the build folder, for whoever debugs the tests.
configure_file(integration/gdb/tessarin-gdb.py ${CMAKE_BINARY_DIR}/Tessarin/${printers} COPYONLY)
