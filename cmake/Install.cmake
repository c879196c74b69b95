# `cmake --install` gives the agent, if it is built, the three libraries with their headers, a CMake package and a
# pkg-config file.
include(CMakePackageConfigHelpers)

set(headers ${CMAKE_INSTALL_INCLUDEDIR}/${PROJECT_NAME})
set(package ${CMAKE_INSTALL_LIBDIR}/cmake/${PROJECT_NAME})

foreach(library kel igmpplatform igmpproxy)
  set_target_properties(${library} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
    INSTALL_RPATH $ORIGIN)
  target_include_directories(${library} INTERFACE $<INSTALL_INTERFACE:${headers}>)
  target_compile_features(${library} PUBLIC cxx_std_20)
  # Symbols have the soname as their version, so that a program that was linked with one release is
  # never bound to the symbols of another one that some library of its own has brought along.
  target_link_options(${library} PRIVATE -Wl,--default-symver)
endforeach()
install(TARGETS kel igmpplatform igmpproxy EXPORT ${PROJECT_NAME}
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY framework platform proxy DESTINATION ${headers} FILES_MATCHING PATTERN *.h)
install(EXPORT ${PROJECT_NAME} NAMESPACE ${PROJECT_NAME}:: DESTINATION ${package}
  FILE ${PROJECT_NAME}Config.cmake)

write_basic_package_version_file(${PROJECT_NAME}ConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
configure_file(packaging/igmpsnoop.pc.in ${PROJECT_NAME}.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}ConfigVersion.cmake
  DESTINATION ${package})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${PROJECT_NAME}.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(NOT IGMPSNOOP_AGENT)
  return()
endif()
# What ordinary users may run is in a directory that they have in their path.
file(RELATIVE_PATH libraries_from_agent
  ${CMAKE_INSTALL_FULL_SBINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH libraries_from_client
  ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
set_target_properties(igmpsnoopd PROPERTIES INSTALL_RPATH $ORIGIN/${libraries_from_agent})
set_target_properties(igmpsnoopctl PROPERTIES INSTALL_RPATH $ORIGIN/${libraries_from_client})
install(TARGETS igmpsnoopd RUNTIME DESTINATION ${CMAKE_INSTALL_SBINDIR})
install(TARGETS igmpsnoopctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# For systemd, which looks for what packages bring in the lib of the prefix /usr.
# Its paths follow from a prefix that may be chosen as late as by `cmake --install --prefix`.
install(CODE "
  set(template [[${PROJECT_SOURCE_DIR}/packaging/igmpsnoopd.service.in]])
  set(unit [[${CMAKE_CURRENT_BINARY_DIR}/igmpsnoopd.service]])
  set(sbin [[${CMAKE_INSTALL_SBINDIR}]])
  set(sysconf [[${CMAKE_INSTALL_SYSCONFDIR}]])
  set(doc [[${CMAKE_INSTALL_DOCDIR}]])")
install(SCRIPT cmake/InstallUnit.cmake)
install(FILES packaging/igmpsnoopd.sysusers DESTINATION lib/sysusers.d RENAME igmpsnoopd.conf)
install(FILES docs/configuration.md docs/operation.md packaging/forwarding.conf packaging/metrics.conf
  packaging/prometheus/igmpsnoop.rules.yml packaging/prometheus/igmpsnoop.dashboard.json
  DESTINATION ${CMAKE_INSTALL_DOCDIR})

# Manual pages and completion, made from the help texts that the programs print and the documents.
find_package(Python3 COMPONENTS Interpreter)
if(NOT Python3_FOUND OR CMAKE_CROSSCOMPILING OR IGMPSNOOP_SANITIZE)
  message(STATUS "No manual pages and no completion: they take Python 3, and running what is built")
  return()
endif()
set(manual ${PROJECT_BINARY_DIR}/manual)
set(made igmpsnoopctl.1 igmpsnoopd.toml.5 igmpsnoopd.8
  igmpsnoopctl.bash igmpsnoopd.bash _igmpsnoopctl _igmpsnoopd)
list(TRANSFORM made PREPEND ${manual}/)
file(GLOB makers CONFIGURE_DEPENDS packaging/manual/*)
add_custom_command(OUTPUT ${made}
  COMMAND ${CMAKE_COMMAND} -E env PYTHONDONTWRITEBYTECODE=1 ${Python3_EXECUTABLE}
    ${PROJECT_SOURCE_DIR}/packaging/manual/make $<TARGET_FILE_DIR:igmpsnoopd> ${manual}
  DEPENDS igmpsnoopd igmpsnoopctl ${makers} README.md docs/configuration.md docs/igmpsnoopctl.md
    docs/operation.md
  VERBATIM)
add_custom_target(manual ALL DEPENDS ${made})
install(FILES ${manual}/igmpsnoopctl.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${manual}/igmpsnoopd.toml.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5)
install(FILES ${manual}/igmpsnoopd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
foreach(program igmpsnoopctl igmpsnoopd)
  install(FILES ${manual}/${program}.bash RENAME ${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
  install(FILES ${manual}/_${program}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
endforeach()
