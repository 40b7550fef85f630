include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

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

# Installs every library that PelmoraCore/CMakeLists.txt defines (each
# pelmora_<folder> and the PelmoraCore target that gathers them), the headers
# of each folder under include/pelmora/<folder>, and the CMake package that
# lets another project find_package(PelmoraCore) and link
# PelmoraCore::PelmoraCore. A new folder is installed with no change here.
function(pelmora_install_core)
  set(core ${PROJECT_SOURCE_DIR}/PelmoraCore)
  get_property(targets DIRECTORY ${core} PROPERTY BUILDSYSTEM_TARGETS)
  list(FILTER targets INCLUDE REGEX "^(pelmora_.+|PelmoraCore)$")
  install(TARGETS ${targets} EXPORT PelmoraCoreTargets ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  foreach(target IN LISTS targets)
    if(target MATCHES "^pelmora_(.+)$")
      file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE ${core} ${core}/${CMAKE_MATCH_1}/*.h)
      foreach(header IN LISTS headers)
        get_filename_component(folder ${header} DIRECTORY)
        install(FILES ${core}/${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pelmora/${folder})
      endforeach()
    endif()
  endforeach()

  set(destination ${CMAKE_INSTALL_LIBDIR}/cmake/PelmoraCore)
  install(EXPORT PelmoraCoreTargets NAMESPACE PelmoraCore:: DESTINATION ${destination})
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PelmoraCoreConfig.cmake.in
    ${PROJECT_BINARY_DIR}/PelmoraCoreConfig.cmake INSTALL_DESTINATION ${destination})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/PelmoraCoreConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMinorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/PelmoraCoreConfig.cmake
    ${PROJECT_BINARY_DIR}/PelmoraCoreConfigVersion.cmake DESTINATION ${destination})
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
