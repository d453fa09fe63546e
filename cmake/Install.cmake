# The library with its headers, the CMake package HalvoriaCFG and cfg.pc for pkg-config.
include(CMakePackageConfigHelpers)

set(HALVORIA_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/halvoria)
# What is loaded when it is asked for: stores of the database, the client of the datagrid.
get_property(HALVORIA_STORES GLOBAL PROPERTY HALVORIA_STORES)
install(TARGETS ${HALVORIA_STORES} halvoria_redis CfgDbDisconnect LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/halvoria)

set(HALVORIA_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/HalvoriaCFG)

install(TARGETS CFG EXPORT HalvoriaCFG
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${HALVORIA_INCLUDE_DIR})
install(DIRECTORY inc/ DESTINATION ${HALVORIA_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
# Of the platform, the libraries that the public headers include.
foreach(library strings thread utility tree connection datagrid)
  install(DIRECTORY platform/${library} DESTINATION ${HALVORIA_INCLUDE_DIR}
    FILES_MATCHING PATTERN "*.h" PATTERN tests EXCLUDE)
endforeach()

install(EXPORT HalvoriaCFG NAMESPACE HalvoriaCFG:: DESTINATION ${HALVORIA_PACKAGE_DIR}
  FILE HalvoriaCFGTargets.cmake)
file(WRITE ${PROJECT_BINARY_DIR}/HalvoriaCFGConfig.cmake
  "include(\${CMAKE_CURRENT_LIST_DIR}/HalvoriaCFGTargets.cmake)\n")
write_basic_package_version_file(${PROJECT_BINARY_DIR}/HalvoriaCFGConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/HalvoriaCFGConfig.cmake ${PROJECT_BINARY_DIR}/HalvoriaCFGConfigVersion.cmake
  DESTINATION ${HALVORIA_PACKAGE_DIR})

# Found from where the file lies, so that an installed tree can be moved.
file(RELATIVE_PATH HALVORIA_PC_PREFIX /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
configure_file(cmake/cfg.pc.in ${PROJECT_BINARY_DIR}/cfg.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cfg.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
