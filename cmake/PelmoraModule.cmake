include(GNUInstallDirs)

# Where "<folder>/<Header>.h" is found: the source tree while building,
# include/pelmora once installed.
set(PELMORA_CORE_INCLUDE
  $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/PelmoraCore>
  $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/pelmora>)

# One static library per subsystem folder of PelmoraCore, so that a folder
# links only what it builds on and a broken folder never blocks the others.
function(pelmora_module name)
  cmake_parse_arguments(ARG "" "" "DEPENDS;LIBS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(sources)
    add_library(pelmora_${name} STATIC ${sources})
    set(scope PUBLIC)
  else()
    add_library(pelmora_${name} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(pelmora_${name} ${scope} ${PELMORA_CORE_INCLUDE})
  target_link_libraries(pelmora_${name} ${scope} ${ARG_DEPENDS} ${ARG_LIBS})
endfunction()

# A test executable per folder of tests/, linking the named modules.
function(pelmora_tests name)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${name}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(test_${name} ${sources})
  target_link_libraries(test_${name} PRIVATE ${ARG_DEPENDS} GTest::gtest GTest::gtest_main)
  target_include_directories(test_${name} PRIVATE ${PROJECT_SOURCE_DIR}/PelmoraCore ${PROJECT_SOURCE_DIR}/tests)
  gtest_discover_tests(test_${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()
