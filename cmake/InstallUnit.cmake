# Installs the unit with the paths of CMAKE_INSTALL_PREFIX: see Install.cmake.
foreach(path sbin sysconf doc)
  cmake_path(ABSOLUTE_PATH ${path} BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX} NORMALIZE)
endforeach()
# What is in /usr is configured in /etc (GNU coding standards, "Directory Variables").
if(sysconf STREQUAL /usr/etc)
  set(sysconf /etc)
endif()
configure_file(${template} ${unit} @ONLY)
file(INSTALL ${unit} DESTINATION ${CMAKE_INSTALL_PREFIX}/lib/systemd/system)
