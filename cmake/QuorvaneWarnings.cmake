# Every target of the project compiles under these; a warning is an error.
add_compile_options(-Wall -Wextra -Wshadow -Wvla -Wextra-semi -Wimplicit-fallthrough -Werror)

# GCC 12 takes std::string's operator+ for an overlapping copy when it inlines it (its bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options(-Wno-restrict)
endif()

set(QUORVANE_SANITIZE "" CACHE STRING "Sanitizers for every target, as -fsanitize takes them")
if(QUORVANE_SANITIZE)
  add_compile_options(-fsanitize=${QUORVANE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${QUORVANE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Instrumented code of the standard library (std::regex) seems uninitialised to GCC 12.
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  # Units hold many files: what one has in its unnamed namespace shadows nothing for GCC, and for clang it does.
  add_compile_options(-Wthread-safety -Wno-shadow)
endif()
