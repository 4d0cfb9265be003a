# dlb_tables_add_chip(CHIP SOURCE...): the plug-in <CHIP>.so (target chip_CHIP), which a process finds
# when the folder above its AsicFeature/ folder is on the plug-in search path.
#
# Part of the installed package: an author outside this repository calls it after
# find_package(DlbTables), and the plug-in comes out at plugins/AsicFeature/ in the build folder.
function(dlb_tables_add_chip chip)
  add_library(chip_${chip} MODULE ${ARGN})
  target_link_libraries(chip_${chip} PRIVATE DlbTables::tables)
  file(RELATIVE_PATH to_library "/${CMAKE_INSTALL_LIBDIR}/dlb-tables/AsicFeature" "/${CMAKE_INSTALL_LIBDIR}")
  set_target_properties(chip_${chip} PROPERTIES
    PREFIX ""
    OUTPUT_NAME ${chip}
    LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/plugins/AsicFeature"
    INSTALL_RPATH "$ORIGIN/${to_library}")
  set_property(GLOBAL APPEND PROPERTY DLB_TABLES_CHIPS chip_${chip})
  install(TARGETS chip_${chip}
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/dlb-tables/AsicFeature")
endfunction()
