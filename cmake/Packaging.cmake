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
# Compressed as Debian wants them: gzip -9, no name or time inside, so a rebuild gives
# the same bytes.
find_program(ZYN_GZIP gzip REQUIRED)
set(ZYN_GZIPPED)
foreach(pair "man/ZYNInsMediaCheck.1|ZYNInsMediaCheck.1.gz" "debian/changelog|changelog.gz")
  string(REPLACE "|" ";" pair "${pair}")
  list(GET pair 0 from)
  list(GET pair 1 to)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${to}
    COMMAND ${ZYN_GZIP} -9 -n -c ${PROJECT_SOURCE_DIR}/${from} > ${CMAKE_BINARY_DIR}/${to}
    DEPENDS ${PROJECT_SOURCE_DIR}/${from} VERBATIM)
  list(APPEND ZYN_GZIPPED ${CMAKE_BINARY_DIR}/${to})
endforeach()
add_custom_target(zyn_gzipped_docs ALL DEPENDS ${ZYN_GZIPPED})
install(FILES ${CMAKE_BINARY_DIR}/ZYNInsMediaCheck.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
# The user's documentation only: the design notes in docs/ are for those who work on
# the code and stay in the source tree.
install(FILES README.md debian/copyright ${CMAKE_BINARY_DIR}/changelog.gz DESTINATION ${ZYN_DOC_DIR})

# The distribution's hardening for what is shipped: a release build without sanitizers.
if(NOT ZYN_SANITIZE AND CMAKE_BUILD_TYPE MATCHES "^(Release|RelWithDebInfo|MinSizeRel)$")
  foreach(target zyn ZYNInsMediaCheck)
    target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  endforeach()
  target_link_options(ZYNInsMediaCheck PRIVATE -Wl,-z,relro,-z,now)
endif()
# The compiler's version notes (.comment) are no part of a shipped binary; strip keeps them.
if(CMAKE_OBJCOPY)
  add_custom_command(TARGET ZYNInsMediaCheck POST_BUILD
    COMMAND ${CMAKE_OBJCOPY} --remove-section=.comment $<TARGET_FILE:ZYNInsMediaCheck> VERBATIM)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zyninsmediacheck)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Generates and checks SHA-256 references of installation media")
# Lines of the long description stay within 80 columns, as Debian's tools want.
set(CPACK_PACKAGE_DESCRIPTION "ZYNInsMediaCheck guards installation media against silent corruption.
In generate mode it records the path, modification time and SHA-256 digest of
every file of a media in file-tree form, seals that record with a hash of the
tree and writes it on volume 1, with a tag tying every further volume to it.
In check mode it identifies each volume, rescans it and compares it with the
reference, reporting missing, altered, shifted and unexpected files in an XML
report, with exit status 0, 1 or 2 for scripts.")
set(CPACK_PACKAGE_CONTACT "ZYNInsMediaCheck maintainers <maintainers@zyninsmediacheck.invalid>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_STRIP_FILES ON)
find_program(ZYN_DPKG_SHLIBDEPS dpkg-shlibdeps)
if(ZYN_DPKG_SHLIBDEPS)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
  # What dpkg-shlibdeps finds for a build on Debian 12, written out by hand.
  set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.0), libsodium23 (>= 1.0.18), libstdc++6 (>= 11)")
  message(STATUS "dpkg-shlibdeps not found: the package's Depends are written out by hand")
endif()
include(CPack)
