# Installs the libraries, their headers, and what other projects find it by: pkg-config and CMake files.
# A prefix other than the configured one works: all paths in those files are relative to them.
include(CMakePackageConfigHelpers)
set(config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/tm_se_bf)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(generated ${CMAKE_CURRENT_BINARY_DIR}/install)

install(TARGETS tm_se_bf EXPORT tm_se_bf-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS tm_se_bf_stream EXPORT tm_se_bf_stream-targets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES include/tm_se_bf.h include/tm_se_bf_stream.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

# Exports of their own: a package may hold one of the libraries.
install(EXPORT tm_se_bf-targets NAMESPACE tm_se_bf:: DESTINATION ${config_dir})
install(EXPORT tm_se_bf_stream-targets NAMESPACE tm_se_bf:: DESTINATION ${config_dir})
configure_package_config_file(cmake/tm_se_bf-config.cmake.in ${generated}/tm_se_bf-config.cmake
                              INSTALL_DESTINATION ${config_dir})
write_basic_package_version_file(${generated}/tm_se_bf-config-version.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${generated}/tm_se_bf-config.cmake ${generated}/tm_se_bf-config-version.cmake
        DESTINATION ${config_dir})

file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
# Without a shared library to ask for it, programs need libm whether --static is given or not.
set(pc_libm "")
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(pc_libm " -lm")
endif()
foreach(name tm_se_bf tm_se_bf_stream)
  configure_file(cmake/${name}.pc.in ${generated}/${name}.pc @ONLY)
  install(FILES ${generated}/${name}.pc DESTINATION ${pkgconfig_dir})
endforeach()
