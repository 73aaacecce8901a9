# What an installation holds: the library, its headers, the programs, the documentation, and what CMake and pkg-config need
# to find the library.
include(CMakePackageConfigHelpers)

install(TARGETS quorvio EXPORT quorvioTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ TYPE INCLUDE)
if(QUORVIO_BUILD_TOOLS)
  install(TARGETS qvio qvio-sim)
endif()

function(install_manual_pages section)
  install(DIRECTORY ${ARGN} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} FILES_MATCHING PATTERN *.${section})
endfunction()
install_manual_pages(3 docs/man/)
install_manual_pages(7 docs/man/)
if(QUORVIO_BUILD_TOOLS)
  install_manual_pages(1 docs/man/)
endif()
if(TARGET qvio_manual)
  install_manual_pages(1 ${PROJECT_BINARY_DIR}/man/)
endif()
# The guide and the pages that it leads to.
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/quorvio
  FILES_MATCHING REGEX "/(guide|python|qvio|reliability)[.]md$" PATTERN man EXCLUDE)

set(package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/quorvio)
install(EXPORT quorvioTargets NAMESPACE quorvio:: DESTINATION ${package_folder})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/packaging/quorvioConfig.cmake.in ${PROJECT_BINARY_DIR}/quorvioConfig.cmake
  INSTALL_DESTINATION ${package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/quorvioConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/quorvioConfig.cmake ${PROJECT_BINARY_DIR}/quorvioConfigVersion.cmake
  DESTINATION ${package_folder})

# Relative to the .pc file itself, so that an installation may be moved.
file(RELATIVE_PATH QUORVIO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(${PROJECT_SOURCE_DIR}/packaging/quorvio.pc.in ${PROJECT_BINARY_DIR}/quorvio.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/quorvio.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
