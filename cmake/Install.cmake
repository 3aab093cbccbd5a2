# What `cmake --install` puts where. Everything is found relative to its own place, so that the prefix may be
# chosen (or moved) after building.
include(CMakePackageConfigHelpers)

set(PEX_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/PexImage)

install(CODE "set(PEX_ROOT \"${PROJECT_SOURCE_DIR}\")
set(PEX_INCLUDE_DIR \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_INCLUDEDIR}\")" COMPONENT dev)
install(SCRIPT ${PROJECT_SOURCE_DIR}/cmake/InstallHeaders.cmake COMPONENT dev)

install(
  TARGETS peximage
  EXPORT PexImageTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(EXPORT PexImageTargets NAMESPACE PexImage:: DESTINATION ${PEX_PACKAGE_DIR} COMPONENT dev)

# Of the folder name in `#include <qt/PexImageWidget.h>` there may be others, so it lies in one of its own.
if(TARGET peximage-qt)
  install(
    TARGETS peximage-qt
    EXPORT PexImageQtTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT qt NAMELINK_COMPONENT qt-dev)
  install(EXPORT PexImageQtTargets NAMESPACE PexImage:: DESTINATION ${PEX_PACKAGE_DIR} COMPONENT qt-dev)
  install(DIRECTORY ${PROJECT_SOURCE_DIR}/qt DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/peximage-qt
          COMPONENT qt-dev FILES_MATCHING PATTERN "*.h")
endif()
install(DIRECTORY ${PROJECT_SOURCE_DIR}/bridges/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/peximage-bridges
        COMPONENT dev)

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/PexImageConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/PexImageConfig.cmake INSTALL_DESTINATION ${PEX_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/PexImageConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/PexImageConfig.cmake ${PROJECT_BINARY_DIR}/PexImageConfigVersion.cmake
        DESTINATION ${PEX_PACKAGE_DIR} COMPONENT dev)

file(RELATIVE_PATH PEX_PREFIX_FROM_PC /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" PEX_PREFIX_FROM_PC ${PEX_PREFIX_FROM_PC})
configure_file(${PROJECT_SOURCE_DIR}/cmake/peximage.pc.in ${PROJECT_BINARY_DIR}/peximage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/peximage.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# Every program under apps/.
if(PEX_BUILD_TOOLS)
  get_property(app_dirs DIRECTORY ${PROJECT_SOURCE_DIR}/apps PROPERTY SUBDIRECTORIES)
  foreach(dir ${app_dirs})
    get_property(targets DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target ${targets})
      get_target_property(type ${target} TYPE)
      if(type STREQUAL EXECUTABLE)
        install(TARGETS ${target} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
      endif()
    endforeach()
  endforeach()
endif()

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
