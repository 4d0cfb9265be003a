# What other projects get: the library, its headers, and a package for find_package(DlbTables).
# Plug-ins and the agent install themselves where they are defined.
include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/DlbTables")
set(header_dir "${CMAKE_INSTALL_INCLUDEDIR}/dlb-tables")

get_property(floors GLOBAL PROPERTY DLB_TABLES_FLOORS)
foreach(floor IN LISTS floors)
  install(DIRECTORY "${PROJECT_SOURCE_DIR}/${floor}" DESTINATION "${header_dir}"
    FILES_MATCHING PATTERN "*.h")
endforeach()

install(TARGETS dlb_tables EXPORT DlbTables
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
  INCLUDES DESTINATION "${header_dir}")
install(EXPORT DlbTables FILE DlbTablesTargets.cmake NAMESPACE DlbTables:: DESTINATION "${package_dir}")

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/DlbTablesConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/DlbTablesConfig.cmake"
  INSTALL_DESTINATION "${package_dir}"
  PATH_VARS DLB_PLUGIN_INSTALL_DIR
  NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/DlbTablesConfigVersion.cmake"
  COMPATIBILITY SameMinorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/DlbTablesConfig.cmake"
  "${PROJECT_BINARY_DIR}/DlbTablesConfigVersion.cmake"
  "${CMAKE_CURRENT_LIST_DIR}/DlbTablesChip.cmake"
  DESTINATION "${package_dir}")
