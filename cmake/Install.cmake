# What `cmake --install` installs, in three components: runtime (the shared libraries), development (headers, models,
# kelc, the files for find_package and pkg-config) and tools (cli-session).

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/clisession)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/CliSession)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Programs and libraries look for the libraries relative to themselves, so that the prefix can be moved. Packages for the
# system's own folders are built with CMAKE_SKIP_INSTALL_RPATH.
file(RELATIVE_PATH bin_to_lib /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set_target_properties(kel CliSession PROPERTIES INSTALL_RPATH $ORIGIN)

install(TARGETS kel CliSession kelc EXPORT CliSessionTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  FILE_SET application DESTINATION ${header_dir} COMPONENT development
  FILE_SET generated_code DESTINATION ${header_dir} COMPONENT development)

# gdb's printers. gdb looks for them beside the library, and loads them from there where the user trusts the folder. Of
# libraries below /usr it looks in its own folder, too, which everybody trusts.
if(BUILD_SHARED_LIBS)
  set(printers_dir ${CMAKE_INSTALL_LIBDIR})
  if(CMAKE_INSTALL_PREFIX STREQUAL /usr)
    set(printers_dir ${CMAKE_INSTALL_DATADIR}/gdb/auto-load${CMAKE_INSTALL_FULL_LIBDIR})
  endif()
  get_target_property(version kel VERSION)
  install(FILES ${PROJECT_SOURCE_DIR}/kel/gdb/printers.py DESTINATION ${printers_dir}
    RENAME libkel.so.${version}-gdb.py COMPONENT development)
endif()

# The libraries' own models and their generated headers. Other models import them.
get_target_property(gen CliSession KEL_GEN_DIR)
foreach(model Zuk/PathTrie Zuk/PrefixTrie CliSession/EntityCopy CliSession/CliSession)
  get_filename_component(folder ${model} DIRECTORY)
  install(FILES ${PROJECT_SOURCE_DIR}/${model}.kel ${gen}/${model}.h
    DESTINATION ${header_dir}/${folder} COMPONENT development)
endforeach()

# find_package(CliSession)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/CliSessionConfig.cmake.in
  ${PROJECT_BINARY_DIR}/CliSessionConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/CliSessionConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/CliSessionConfig.cmake
  ${PROJECT_BINARY_DIR}/CliSessionConfigVersion.cmake
  ${PROJECT_SOURCE_DIR}/cmake/KelModel.cmake
  DESTINATION ${package_dir} COMPONENT development)
install(EXPORT CliSessionTargets NAMESPACE CliSession:: DESTINATION ${package_dir} COMPONENT development)

# The service's library, with a set of targets of its own: it needs what the others do not.
if(TARGET CliService)
  set_target_properties(CliService PROPERTIES INSTALL_RPATH $ORIGIN)
  install(TARGETS CliService EXPORT CliServiceTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
    FILE_SET application DESTINATION ${header_dir} COMPONENT development)
  install(EXPORT CliServiceTargets NAMESPACE CliSession:: DESTINATION ${package_dir} COMPONENT development)
endif()

# pkg-config. The files find the prefix relative to themselves, and pass the linker options that kel_add_model sets.
set(link_clisession "-Wl,--push-state,--no-as-needed -lCliSession -Wl,--pop-state")
if(NOT BUILD_SHARED_LIBS)
  get_target_property(options CliSession INTERFACE_LINK_OPTIONS)
  list(TRANSFORM options REPLACE "^LINKER:" "-Wl,")
  list(JOIN options " " link_clisession)
  string(APPEND link_clisession " -lCliSession")
endif()
file(RELATIVE_PATH pc_to_prefix /prefix/${pkgconfig_dir} /prefix)
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
set(packages kel clisession)
if(TARGET CliService)
  list(APPEND packages cliservice)
endif()
foreach(name ${packages})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${pkgconfig_dir} COMPONENT development)
endforeach()

install(FILES ${PROJECT_SOURCE_DIR}/man/kelc.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT development)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development PATTERN doxygen EXCLUDE)

if(TARGET cli-session)
  set_target_properties(cli-session PROPERTIES INSTALL_RPATH $ORIGIN/${bin_to_lib})
  install(TARGETS cli-session DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
  install(FILES ${PROJECT_SOURCE_DIR}/man/cli-session.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endif()
