# Installation: the shared library, the public C header vqmath.h, the class headers under
# include/vqmath/<subsystem>/, a CMake package (find_package(vqmath) -> vqmath::vqmath) and a
# pkg-config file (pkg-config --cflags --libs vqmath).
include(CMakePackageConfigHelpers)

install(TARGETS vqmath vqmath_mkl vqmath_arpack EXPORT vqmathTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(FILES api/vqmath.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(dir api dense sparse eigen)
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vqmath/${dir}
    FILES_MATCHING PATTERN "*.h" PATTERN "internal" EXCLUDE)
endforeach()

install(EXPORT vqmathTargets NAMESPACE vqmath:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vqmath)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/vqmathConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/vqmathConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vqmath)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vqmathConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vqmathConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/vqmathConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/vqmath)

# The pkg-config file finds the prefix from its own folder, so that it stays right wherever the
# files are installed (cmake --install --prefix, a staging folder, a package root).
file(RELATIVE_PATH VQMATH_PC_PREFIX "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
configure_file(${CMAKE_CURRENT_SOURCE_DIR}/cmake/vqmath.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vqmath.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vqmath.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
