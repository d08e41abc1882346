# Headers under include/sca_tika/<folder>/, the library, a CMake package and a pkg-config file.
foreach(header IN LISTS SCA_PUBLIC_HEADERS)
  get_filename_component(folder ${header} DIRECTORY)
  install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/sca_tika/${folder})
endforeach()
install(TARGETS sca_tika EXPORT sca_tikaTargets LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/sca_tika)
install(EXPORT sca_tikaTargets NAMESPACE sca_tika:: DESTINATION ${package_dir})
configure_package_config_file(cmake/sca_tikaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/sca_tikaConfig.cmake INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/sca_tikaConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/sca_tikaConfig.cmake
  ${PROJECT_BINARY_DIR}/sca_tikaConfigVersion.cmake DESTINATION ${package_dir})

file(RELATIVE_PATH SCA_INCLUDE_FROM_PC
  /${CMAKE_INSTALL_LIBDIR}/pkgconfig /${CMAKE_INSTALL_INCLUDEDIR})
configure_file(cmake/sca_tika.pc.in ${PROJECT_BINARY_DIR}/sca_tika.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/sca_tika.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
