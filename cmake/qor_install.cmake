# What `make install` and `cmake --install` put where: the library with its
# SONAME, the header, pkg-config and CMake packages, the tool with the virtual
# instrument, the SoapySDR module (installed by its own rule in soapy/), the
# Python package and the udev rule. Every path is relative to the prefix
# except the udev rule's, so that a staged install (DESTDIR) is complete.
include(CMakePackageConfigHelpers)

install(TARGETS qor_api EXPORT qor_apiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT qor_apiTargets NAMESPACE qor_api:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qor_api)
configure_package_config_file(cmake/qor_apiConfig.cmake.in ${CMAKE_BINARY_DIR}/qor_apiConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qor_api)
write_basic_package_version_file(${CMAKE_BINARY_DIR}/qor_apiConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_BINARY_DIR}/qor_apiConfig.cmake ${CMAKE_BINARY_DIR}/qor_apiConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/qor_api)
file(RELATIVE_PATH QOR_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/qor_api.pc.in ${CMAKE_BINARY_DIR}/qor_api.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/qor_api.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# The virtual instrument in a folder of its own (it exports D2XX names, which
# nothing should link by accident); the tool finds it there, relative to itself.
set(QOR_SIM_INSTALL_DIR ${CMAKE_INSTALL_LIBDIR}/qor_api)
if(TARGET qor_sim)
  install(TARGETS qor_sim LIBRARY DESTINATION ${QOR_SIM_INSTALL_DIR})
endif()
if(TARGET qor)
  file(RELATIVE_PATH tool_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  file(RELATIVE_PATH tool_to_sim ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_PREFIX}/${QOR_SIM_INSTALL_DIR}/libqor_sim.so)
  target_compile_definitions(qor_tool_core PRIVATE QOR_INSTALLED_SIM="${tool_to_sim}")
  set_target_properties(qor PROPERTIES INSTALL_RPATH "$ORIGIN/${tool_to_lib}")
  install(TARGETS qor RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()

# The Python package, with the way from it to the library.
find_program(QOR_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH)
if(QOR_PYTHON3 AND NOT QOR_PYTHON_INSTALL_DIR)
  execute_process(COMMAND ${QOR_PYTHON3} -c "import sys; print('%d.%d' % sys.version_info[:2])"
    OUTPUT_VARIABLE python_version OUTPUT_STRIP_TRAILING_WHITESPACE)
  # Debian's own packages live in python3/dist-packages; a local prefix's in python3.X.
  if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(QOR_PYTHON_INSTALL_DIR lib/python3/dist-packages)
  else()
    set(QOR_PYTHON_INSTALL_DIR lib/python${python_version}/dist-packages)
  endif()
endif()
if(QOR_PYTHON_INSTALL_DIR)
  install(DIRECTORY python/qor DESTINATION ${QOR_PYTHON_INSTALL_DIR} PATTERN __pycache__ EXCLUDE)
  file(RELATIVE_PATH package_to_lib ${CMAKE_INSTALL_PREFIX}/${QOR_PYTHON_INSTALL_DIR}/qor
    ${CMAKE_INSTALL_FULL_LIBDIR}/libqor_api.so.${PROJECT_VERSION_MAJOR})
  file(WRITE ${CMAKE_BINARY_DIR}/python/_installed.py
    "# Written by the install rules: the library, relative to this package.\nLIBRARY = \"${package_to_lib}\"\n")
  install(FILES ${CMAKE_BINARY_DIR}/python/_installed.py DESTINATION ${QOR_PYTHON_INSTALL_DIR}/qor)
endif()

# udev reads its rules from /etc and /usr/lib only: a system prefix installs
# there, any other prefix keeps the rule with it for the user to copy.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(udev_default /usr/lib/udev/rules.d)
elseif(CMAKE_INSTALL_PREFIX STREQUAL "/usr/local")
  set(udev_default /etc/udev/rules.d)
else()
  set(udev_default ${CMAKE_INSTALL_PREFIX}/lib/udev/rules.d)
endif()
set(QOR_UDEV_RULES_DIR ${udev_default} CACHE PATH "Where the udev rule of the units goes")
install(FILES udev/60-qor.rules DESTINATION ${QOR_UDEV_RULES_DIR})
