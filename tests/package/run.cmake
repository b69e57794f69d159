# cmake -D build=… -D compiler=… -D version=… -P run.cmake
execute_process(COMMAND mktemp -d -t tessarin-package-XXXXXXXX OUTPUT_VARIABLE temporary OUTPUT_STRIP_TRAILING_WHITESPACE
  COMMAND_ERROR_IS_FATAL ANY)

# The folder goes, whatever came of it.
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  if(NOT result EQUAL 0)
    file(REMOVE_RECURSE ${temporary})
    message(FATAL_ERROR "${ARGN}\n${output}\n=> ${result}")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

run(${CMAKE_COMMAND} --install ${build} --prefix ${temporary}/prefix)
# What gdb needs to show our values lies beside the library; under /usr also where distributions put it.
run(${CMAKE_COMMAND} -E env DESTDIR=${temporary}/root ${CMAKE_COMMAND} --install ${build} --prefix /usr --component gdb)
file(GLOB_RECURSE libraries FOLLOW_SYMLINKS ${temporary}/prefix/libtessarin.so.${version})
file(GLOB_RECURSE printers ${temporary}/root/usr/share/gdb/auto-load/usr/libtessarin.so.${version}-gdb.py)
if(NOT libraries OR NOT EXISTS ${libraries}-gdb.py OR NOT printers)
  file(REMOVE_RECURSE ${temporary})
  message(FATAL_ERROR "not installed beside ${libraries}, or not under share/gdb: ${printers}")
endif()
run(${CMAKE_COMMAND} -G Ninja -S ${CMAKE_CURRENT_LIST_DIR} -B ${temporary}/consumer -D CMAKE_BUILD_TYPE=Debug
  -D CMAKE_CXX_COMPILER=${compiler} -D CMAKE_PREFIX_PATH=${temporary}/prefix -D version=${version})
run(${CMAKE_COMMAND} --build ${temporary}/consumer)
run(${temporary}/consumer/consumer)
message("${output}")

# What uses nothing but queues loads five libraries: ours, and the compiler's.
run(${temporary}/consumer/queues)
run(ldd ${temporary}/consumer/queues)
string(REGEX MATCHALL "lib[^ ]+ =>" libraries "${output}")
list(LENGTH libraries count)
if(count GREATER 5)
  file(REMOVE_RECURSE ${temporary})
  message(FATAL_ERROR "${count} libraries:\n${output}")
endif()

# The library is compiled with precompiled headers, which hide a forgotten include; an application has none.
if("$ENV{TESSARIN_LONG}")
  file(GLOB_RECURSE headers ${temporary}/prefix/include/*.h)
  foreach(header IN LISTS headers)
    run(${compiler} -std=c++20 -fsyntax-only -x c++ -I ${temporary}/prefix/include ${header})
  endforeach()
endif()
file(REMOVE_RECURSE ${temporary})
