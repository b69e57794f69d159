# Warnings are errors for our own code on both compilers.
add_library(tessarin_warnings INTERFACE)
target_compile_options(tessarin_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror -Wshadow -Wnon-virtual-dtor -Wcast-align
  -Wno-missing-field-initializers) # option structs are filled by name
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # g++ 12 reports these from inside its own inlined library code.
  target_compile_options(tessarin_warnings INTERFACE -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-array-bounds -Wno-restrict -Wno-dangling-pointer)
endif()
