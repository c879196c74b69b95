# The warnings under which everything in this project must be clean.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # Finds overlaps in std::string's own operator+ that are not there (GCC bug 105651).
  add_compile_options(-Wno-restrict)
endif()
if(IGMPSNOOP_WERROR)
  add_compile_options(-Werror)
endif()
