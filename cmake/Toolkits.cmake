# The toolkits of integration/: tessarin_glib and tessarin_qt exist where the toolkit was found. The library itself needs neither;
# only examples, tests and benchmarks link them.
option(TESSARIN_GLIB "Build what uses GLib, where it is installed" ON)
option(TESSARIN_QT "Build what uses Qt 6, where it is installed" ON)

# In the tree as installed: <Tessarin/integration/…>.
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/include/Tessarin)
file(CREATE_LINK ${PROJECT_SOURCE_DIR}/integration ${CMAKE_BINARY_DIR}/include/Tessarin/integration SYMBOLIC)

function(tessarin_toolkit name)
  add_library(tessarin_${name} INTERFACE)
  target_link_libraries(tessarin_${name} INTERFACE ${ARGN})
endfunction()

find_package(PkgConfig QUIET)
if(TESSARIN_GLIB AND PkgConfig_FOUND)
  pkg_check_modules(GLIB QUIET IMPORTED_TARGET GLOBAL glib-2.0)
  if(GLIB_FOUND)
    tessarin_toolkit(glib PkgConfig::GLIB)
  endif()
endif()
if(TESSARIN_QT)
  find_package(Qt6Core QUIET CONFIG GLOBAL)
  if(Qt6Core_FOUND)
    tessarin_toolkit(qt Qt6::Core)
  endif()
endif()
