# Installs the libraries, their headers, and the pkg-config and CMake files with which other projects find them.
# A prefix other than the configured one works: all paths in those files are relative to the files.
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
# A release has the targets of all before it: find_package(tm_se_bf 1.3) is served by 2.0.0.
write_basic_package_version_file(${generated}/tm_se_bf-config-version.cmake
                                 COMPATIBILITY AnyNewerVersion)
install(FILES ${generated}/tm_se_bf-config.cmake ${generated}/tm_se_bf-config-version.cmake
        DESTINATION ${config_dir})

file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_PREFIX}/${pkgconfig_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
# A static library does not load libm by itself: programs must link it, with --static or without.
set(pc_libm "")
set(pc_private_libm " -lm")
if(DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS)
  set(pc_libm " -lm")
  set(pc_private_libm "")
endif()
foreach(name tm_se_bf tm_se_bf_stream)
  configure_file(cmake/${name}.pc.in ${generated}/${name}.pc @ONLY)
  install(FILES ${generated}/${name}.pc DESTINATION ${pkgconfig_dir})
endforeach()
