# Installation and packaging: the shared library with its SONAME link, the
# public headers (tolva/tolva.h and one per part of the library), the tolva command and its manual page, a pkg-config file and
# a CMake package (find_package(tolva) gives the imported target tolva::tolva).
# Every file written here is relocatable: the install prefix may be chosen at
# install time (cmake --install ... --prefix DIR).
include(CMakePackageConfigHelpers)

set(TOLVA_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tolva)

install(TARGETS tolva EXPORT tolvaTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tolva COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

if(TARGET tolva_cli)
  install(TARGETS tolva_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
  install(FILES ${PROJECT_SOURCE_DIR}/tools/tolva.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
endif()

install(EXPORT tolvaTargets NAMESPACE tolva:: FILE tolvaTargets.cmake
  DESTINATION ${TOLVA_CMAKE_DIR} COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/tolvaConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tolvaConfig.cmake
  INSTALL_DESTINATION ${TOLVA_CMAKE_DIR})
# The SONAME moves with the major version, and so does compatibility.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/tolvaConfigVersion.cmake
  VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/tolvaConfig.cmake ${PROJECT_BINARY_DIR}/tolvaConfigVersion.cmake
  DESTINATION ${TOLVA_CMAKE_DIR} COMPONENT development)

# pkg-config: paths relative to the .pc file's own directory.
file(RELATIVE_PATH TOLVA_PC_PREFIX_FROM_PCDIR
  ${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" TOLVA_PC_PREFIX_FROM_PCDIR "${TOLVA_PC_PREFIX_FROM_PCDIR}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/tolva.pc.in ${PROJECT_BINARY_DIR}/tolva.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tolva.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
