# Compiles through ccache where it is installed. Paths count relative to the checkout, so that a
# fresh clone of the same sources finds what another clone compiled. What a source includes is taken
# from what the compiler says of it, so that nothing is preprocessed twice.
find_program(IGMPSNOOP_CCACHE ccache)
mark_as_advanced(IGMPSNOOP_CCACHE)
if(IGMPSNOOP_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env
      CCACHE_BASEDIR=${PROJECT_SOURCE_DIR} CCACHE_NOHASHDIR=true CCACHE_DEPEND=true
      ${IGMPSNOOP_CCACHE})
endif()
