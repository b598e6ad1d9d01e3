# What "cmake --install" puts where, by component:
#   runtime        what a machine needs that runs the server
#   development    what hosts and extensions are built with
#   documentation  the pages for people
#   symbols        what a debugger needs to read a dump
include(CMakePackageConfigHelpers)

set(KOVA_CMAKE_PACKAGE lib/cmake/KOVAServer)

install(TARGETS KOVAServer EXPORT KOVAServerTargets
  RUNTIME DESTINATION bin COMPONENT runtime
  ARCHIVE DESTINATION lib COMPONENT development)
install(TARGETS kovactl RUNTIME DESTINATION bin COMPONENT runtime)
install(TARGETS event_messages
  LIBRARY DESTINATION bin/messages COMPONENT runtime)
install(TARGETS sample_extension
  RUNTIME DESTINATION bin/sample-extension COMPONENT runtime)

install(TARGETS kova_extension EXPORT KOVAServerTargets)
install(DIRECTORY include/kova DESTINATION include COMPONENT development
  FILES_MATCHING PATTERN "*.h")
install(EXPORT KOVAServerTargets NAMESPACE KOVAServer::
  DESTINATION ${KOVA_CMAKE_PACKAGE} COMPONENT development)
configure_package_config_file(cmake/KOVAServerConfig.cmake.in
  ${PROJECT_BINARY_DIR}/cmake/KOVAServerConfig.cmake
  INSTALL_DESTINATION ${KOVA_CMAKE_PACKAGE}
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/cmake/KOVAServerConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/cmake/KOVAServerConfig.cmake
  ${PROJECT_BINARY_DIR}/cmake/KOVAServerConfigVersion.cmake
  DESTINATION ${KOVA_CMAKE_PACKAGE} COMPONENT development)
install(DIRECTORY samples/driver samples/extension samples/faulty samples/host
  DESTINATION samples COMPONENT development
  PATTERN "*_test.cpp" EXCLUDE
  PATTERN "loaded_extension.h" EXCLUDE)

install(DIRECTORY docs DESTINATION . COMPONENT documentation
  FILES_MATCHING PATTERN "*.md" PATTERN "*.schema.json")
install(FILES packaging/README.md CHANGELOG.md DESTINATION .
  COMPONENT documentation)

foreach(image KOVAServer kovactl sample_extension)
  install(FILES ${KOVA_SYMBOLS}/${image}.pdb
    DESTINATION symbols COMPONENT symbols)
endforeach()
