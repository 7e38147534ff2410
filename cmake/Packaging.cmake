# Install layout and the Debian package (cpack -G DEB in the build folder); docs/install.md.
include(GNUInstallDirs)
set(ZYN_DATA_DIR ${CMAKE_INSTALL_DATADIR}/zyninsmediacheck)
set(ZYN_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/zyninsmediacheck)

install(TARGETS ZYNInsMediaCheck RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
# Without QRTReffilesPath or QRTInstallPath, the tool reads the table installed beside it:
# the data folder seen from the folder of the executable, so that any prefix works.
file(RELATIVE_PATH ZYN_BIN_TO_DATA /${CMAKE_INSTALL_BINDIR} /${ZYN_DATA_DIR}/reffiles)
set_property(SOURCE ${PROJECT_SOURCE_DIR}/SystemTS/QRTSysTS00.m/src/ZYNSysNLSCore.cpp APPEND PROPERTY
  COMPILE_DEFINITIONS ZYN_INSTALLED_REFFILES="${ZYN_BIN_TO_DATA}")
install(FILES reffiles/NLS/SUPPLANG_K6 DESTINATION ${ZYN_DATA_DIR}/reffiles/NLS)
install(FILES man/ZYNInsMediaCheck.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES README.md DESTINATION ${ZYN_DOC_DIR})
install(DIRECTORY docs/ DESTINATION ${ZYN_DOC_DIR} FILES_MATCHING PATTERN "*.md")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zyninsmediacheck)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Generates and checks SHA-256 references of installation media")
set(CPACK_PACKAGE_DESCRIPTION "ZYNInsMediaCheck records the path, time and SHA-256 of every file \
of a media in a sealed XML reference, and later checks each volume against it, reporting \
missing, altered, shifted and unexpected files.")
set(CPACK_PACKAGE_CONTACT "ZYNInsMediaCheck maintainers <maintainers@zyninsmediacheck.invalid>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_STRIP_FILES ON)
find_program(ZYN_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ZYN_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  # What dpkg-shlibdeps finds for a build on Debian 12, written out by hand.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libstdc++6 (>= 11)")
  message(STATUS "dpkg-shlibdeps not found: the package's Depends are written out by hand")
endif()
include(CPack)
