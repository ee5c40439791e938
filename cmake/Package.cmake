# Debian packages, by `cpack` in a build of the preset `package`: one for each component of Install.cmake. The runtime
# package is named after the libraries' SOVERSION, so that packages of two can be installed side by side.

get_target_property(soversion CliSession SOVERSION)
set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_CONTACT "The libCliSession authors <libclisession@example.org>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libclisession${soversion})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Configuration sessions for a network device's command line: libraries")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libclisession-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Configuration sessions for a network device's command line: headers, models and the model compiler")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME clisession-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Configuration sessions for a network device's command line: the shell")

foreach(component RUNTIME DEVELOPMENT TOOLS)
  string(TOLOWER ${component} name)
  install(FILES LICENSE RENAME copyright COMPONENT ${name}
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME})
endforeach()

include(CPack)
