# What `cmake --install` and `cpack` put on a machine. Everything in it is relocatable: the CMake
# package and the pkg-config file find their own prefix.
include(CMakePackageConfigHelpers)

# Headers that sources of the library share and that no public header includes.
set(QUILLMERE_INTERNAL_HEADERS
    core/CFHolder.h
    core/ThrowErrorCode.h
    logging/LogState.h
    strings/TextBuilder.h
    xml/NodeText.h)

set(exclude_internal)
foreach(header IN LISTS QUILLMERE_INTERNAL_HEADERS)
  if(NOT EXISTS ${PROJECT_SOURCE_DIR}/QuillmereLib/${header})
    message(FATAL_ERROR "The internal header QuillmereLib/${header} is gone; "
                        "take it off the list in cmake/Install.cmake")
  endif()
  list(APPEND exclude_internal PATTERN ${header} EXCLUDE)
endforeach()

install(TARGETS QuillmereLib EXPORT QuillmereLib
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY QuillmereLib/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QuillmereLib
        FILES_MATCHING PATTERN "*.h" ${exclude_internal})
if(NOT APPLE)
  install(DIRECTORY platform/include/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QuillmereLib/platform
          FILES_MATCHING PATTERN "*.h")
  install(PROGRAMS tools/quillmere-system-report DESTINATION ${CMAKE_INSTALL_LIBEXECDIR})
endif()
install(FILES LICENSE README.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QuillmereLib)
install(EXPORT QuillmereLib NAMESPACE QuillmereLib:: FILE QuillmereLibTargets.cmake
        DESTINATION ${package_dir})
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/QuillmereLibConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfig.cmake
              ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfigVersion.cmake
        DESTINATION ${package_dir})

# The way from the folder of the pkg-config file back to the prefix, and from there to the others.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/quillmerelib.pc.in
               ${PROJECT_BINARY_DIR}/cmake/quillmerelib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/quillmerelib.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_NAME quillmerelib)
  set(CPACK_PACKAGE_CONTACT "The QuillmereLib developers <quillmerelib@localhost>")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_STRIP_FILES ON)
  include(CPack)
endif()
