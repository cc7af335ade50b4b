# What `cmake --install` and `cpack` put on a machine. Everything in it is relocatable: the CMake
# package and the pkg-config file find their own prefix. Three components: what programs need to run,
# what they need to be built, and what is to be read.
include(CMakePackageConfigHelpers)

# Headers that sources of the library share and that no public header includes.
set(QUILLMERE_INTERNAL_HEADERS
    core/CFHolder.h
    core/Create.h
    core/ThrowErrorCode.h
    filesystem/PathRef.h
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
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY QuillmereLib/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QuillmereLib COMPONENT dev
        FILES_MATCHING PATTERN "*.h" ${exclude_internal})
install(FILES ${QUILLMERE_COUNTING}/QuillmereLib/core/ObjectHooks.h
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QuillmereLib/core COMPONENT dev)
if(NOT APPLE)
  install(DIRECTORY platform/include/
          DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QuillmereLib/platform COMPONENT dev
          FILES_MATCHING PATTERN "*.h")
  install(PROGRAMS tools/quillmere-system-report DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}
          COMPONENT runtime)
  # gdb looks for the printers below its own folder by the full path of the library, whose prefix is
  # known when the tree is installed and not before.
  install(FILES tools/gdb/quillmere.py RENAME libQuillmereLib.so.${PROJECT_VERSION}-gdb.py
          DESTINATION ${CMAKE_INSTALL_DATADIR}/gdb/auto-load\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}
          COMPONENT runtime)
endif()
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT runtime)
install(FILES README.md CHANGELOG.md CONTRIBUTING.md DESTINATION ${CMAKE_INSTALL_DOCDIR}
        COMPONENT doc)
install(DIRECTORY docs/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs COMPONENT doc
        FILES_MATCHING PATTERN "*.md" PATTERN "*.svg")
# What a program takes that starts from an example, without what only tests it.
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc
        PATTERN CMakeLists.txt EXCLUDE PATTERN "*.sh" EXCLUDE PATTERN write_lines.cpp EXCLUDE)
# The API reference, where doxygen has made it.
install(DIRECTORY build/docs/html DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT doc OPTIONAL)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QuillmereLib)
install(EXPORT QuillmereLib NAMESPACE QuillmereLib:: FILE QuillmereLibTargets.cmake
        DESTINATION ${package_dir} COMPONENT dev)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/QuillmereLibConfig.cmake.in
    ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfig.cmake
    INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfig.cmake
              ${PROJECT_BINARY_DIR}/cmake/QuillmereLibConfigVersion.cmake
        DESTINATION ${package_dir} COMPONENT dev)

# The way from the folder of the pkg-config file back to the prefix, and from there to the others.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix "${pc_prefix}")
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/quillmerelib.pc.in
               ${PROJECT_BINARY_DIR}/cmake/quillmerelib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/cmake/quillmerelib.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# A Debian package for each component, named by Debian's rules, and one of the debug symbols.
if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_NAME quillmerelib)
  set(CPACK_PACKAGE_CONTACT "The QuillmereLib developers <quillmerelib@localhost>")
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_COMPONENTS_ALL runtime dev doc)
  set(CPACK_COMPONENTS_GROUPING IGNORE)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

  # The first line of each description is its summary; CPack would put one summary before all.
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
  string(CONCAT about_library
         "QuillmereLib has reference-counted objects, strings with path arithmetic,\n"
         "collections, streams, files with safe copying, drives, dates, threads, an XML\n"
         "DOM and logs.\n.\n")

  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libquillmerelib${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION}\n${about_library}\
This package holds the shared library, and its printers for gdb.")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  # Debian renews the cache of libraries once for all packages; CPack's scripts do for each.
  set(triggers ${PROJECT_BINARY_DIR}/cmake/triggers)
  file(CONFIGURE OUTPUT ${triggers} CONTENT "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${triggers})
  set(CPACK_DEBIAN_RUNTIME_DEBUGINFO_PACKAGE ON)

  set(CPACK_DEBIAN_DEV_PACKAGE_NAME libquillmerelib-dev)
  set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
  set(CPACK_COMPONENT_DEV_DESCRIPTION "${PROJECT_DESCRIPTION} (headers)\n${about_library}\
This package holds the headers, and the files for CMake and pkg-config.")
  set(CPACK_COMPONENT_DEV_DEPENDS runtime)

  set(CPACK_DEBIAN_DOC_PACKAGE_NAME libquillmerelib-doc)
  set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
  set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)
  set(CPACK_COMPONENT_DOC_DESCRIPTION "${PROJECT_DESCRIPTION} (documentation)\n${about_library}\
This package holds guides, the API reference and examples.")

  # Where Debian's users look for the licence of a package.
  set(copyright ${PROJECT_BINARY_DIR}/cmake/copyright)
  file(CONFIGURE OUTPUT ${copyright} CONTENT "\
QuillmereLib\nCopyright 2026 the QuillmereLib developers\n
Licensed under the Apache License 2.0, whose text is in\n/usr/share/common-licenses/Apache-2.0\n")
  foreach(component IN ITEMS runtime dev doc)
    string(TOUPPER ${component} key)
    install(FILES ${copyright} COMPONENT ${component} EXCLUDE_FROM_ALL
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${key}_PACKAGE_NAME})
  endforeach()
  include(CPack)
endif()
