# `cpack -G DEB` in a build directory makes libqzint1, libqzint-dev and qz-agent of what is built.
# No package has a script: dpkg's trigger keeps the linker's cache up to date.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "Interceptor SDK developers")
set(CPACK_PACKAGE_CONTACT "Interceptor SDK developers <sdk@quenvale.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # Each package has one of its own: its first line.
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development agent)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqzint1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/triggers
                                               ${PROJECT_BINARY_DIR}/shlibs)
file(WRITE ${PROJECT_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
file(WRITE ${PROJECT_BINARY_DIR}/shlibs
     "libqzint ${PROJECT_VERSION_MAJOR} libqzint1 (>= ${PROJECT_VERSION})\n")
configure_file(${CMAKE_CURRENT_LIST_DIR}/cpack-depends.cmake.in cpack-depends.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${PROJECT_BINARY_DIR}/cpack-depends.cmake)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "in-process instrumentation that reports calls to an agent
The library that an instrumented program is linked with. It keeps the state of each call
and sends compact events to the management agent.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libqzint-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libqzint1 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "headers to write an interceptor with
Headers, and what leads CMake and pkg-config to the library: all that is needed to write
an interceptor in C or C++.")

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME qz-agent)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION devel)
set(CPACK_DEBIAN_AGENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_AGENT_DESCRIPTION "development agent for the Interceptor SDK
Receives the events of instrumented programs and shows them as text, JSON or trees. It
pushes a configuration, and can misbehave as real agents and networks do.")

include(CPack)
