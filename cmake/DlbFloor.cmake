# Floors: folders whose includes go down only.
#
# Each floor gets an include root <build>/floors/<floor>/ with one link, <floor>, to its sources. A
# target is given the roots that it may include from, so that any other include does not compile.

# dlb_floor_root(FLOOR): makes the interface target floor_root_FLOOR, which carries that include root.
function(dlb_floor_root floor)
  set(root "${PROJECT_BINARY_DIR}/floors/${floor}")
  file(MAKE_DIRECTORY "${root}")
  file(CREATE_LINK "${PROJECT_SOURCE_DIR}/${floor}" "${root}/${floor}" SYMBOLIC)
  add_library(floor_root_${floor} INTERFACE)
  target_include_directories(floor_root_${floor} INTERFACE "${root}")
  target_compile_options(floor_root_${floor} INTERFACE "-fmacro-prefix-map=${root}/=")
endfunction()

# dlb_floor(FLOOR SEES LOWER...): one of the floors of the shared library, from all sources below the
# current folder. SEES names every lower floor whose headers it may include.
function(dlb_floor floor)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SEES")
  dlb_floor_root(${floor})
  set_property(GLOBAL APPEND PROPERTY DLB_TABLES_FLOORS ${floor})

  file(GLOB_RECURSE sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
  if(NOT sources)
    return()
  endif()
  add_library(floor_${floor} OBJECT ${sources})
  set_target_properties(floor_${floor} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  target_compile_options(floor_${floor} PRIVATE -fno-semantic-interposition)
  target_link_libraries(floor_${floor} PRIVATE floor_root_${floor})
  foreach(lower IN LISTS arg_SEES)
    target_link_libraries(floor_${floor} PRIVATE floor_root_${lower})
  endforeach()
endfunction()

# dlb_tables_library(): the shared library of all floors so far. Its include roots are theirs.
function(dlb_tables_library)
  get_property(floors GLOBAL PROPERTY DLB_TABLES_FLOORS)
  add_library(dlb_tables SHARED)
  add_library(DlbTables::tables ALIAS dlb_tables)
  set_target_properties(dlb_tables PROPERTIES
    EXPORT_NAME tables
    LINKER_LANGUAGE CXX
    SOVERSION 0
    VERSION ${PROJECT_VERSION})
  target_compile_features(dlb_tables PUBLIC cxx_std_20)
  # Calls inside the library go straight to their target: nobody interposes them.
  target_link_options(dlb_tables PRIVATE -Wl,-Bsymbolic-functions)
  target_link_libraries(dlb_tables PRIVATE ${CMAKE_DL_LIBS})
  # Classes are laid out differently with the checks in, so whoever links the library must agree.
  target_compile_definitions(dlb_tables PUBLIC $<$<BOOL:${DLB_CHECK_INVARIANTS}>:DLB_CHECK_INVARIANTS=1>)
  foreach(floor IN LISTS floors)
    set(root "${PROJECT_BINARY_DIR}/floors/${floor}")
    target_include_directories(dlb_tables PUBLIC "$<BUILD_INTERFACE:${root}>")
    target_compile_options(dlb_tables PUBLIC "$<BUILD_INTERFACE:-fmacro-prefix-map=${root}/=>")
    if(TARGET floor_${floor})
      target_sources(dlb_tables PRIVATE $<TARGET_OBJECTS:floor_${floor}>)
    endif()
  endforeach()
endfunction()
