# Warnings are errors for our own code on both compilers.
add_library(tessarin_warnings INTERFACE)
target_compile_options(tessarin_warnings INTERFACE -Wall -Wextra -Wpedantic -Werror -Wnon-virtual-dtor -Wcast-align
  -Wno-missing-field-initializers) # option structs are filled by name
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(tessarin_warnings INTERFACE -Wshadow=local) # plain -Wshadow warns of scoped enumerators, too
  # g++ 12 reports these from inside its own inlined library code.
  target_compile_options(tessarin_warnings INTERFACE -Wno-maybe-uninitialized -Wno-stringop-overflow -Wno-stringop-overread
    -Wno-array-bounds -Wno-restrict -Wno-dangling-pointer)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # A class whose initialiser takes arguments hides NSObject's plain one on purpose.
  target_compile_options(tessarin_warnings INTERFACE -Wshadow -Wno-overloaded-virtual)
endif()
