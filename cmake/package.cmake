# Debian package: `cpack` in the build folder (or `make package` at the top)
# writes reelfx_<version>_<arch>.deb installing under /usr; its run-time
# dependencies are computed by dpkg-shlibdeps from what the files link.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME reelfx)
set(CPACK_PACKAGE_VENDOR "reelfx developers")
set(CPACK_PACKAGE_CONTACT "reelfx developers <reelfx@example.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "video effects module with a command-line tool and frei0r plug-ins")
set(CPACK_PACKAGE_DESCRIPTION "reelfx is a video-effects module with 25 effects (Aged Film, Mosaic,
NewsPrint, Lantern, Dream, fades, crops, tone maps and more), the reelfx
command-line tool that renders images and video through it, one frei0r
plug-in per effect, so that the effects are available in ffmpeg, GStreamer,
MLT and Kdenlive, Shotcut filter panels for them, and a native GStreamer
plug-in with one element per effect. A host library with its headers lets
other programs load the module.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION video)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The plug-ins find the adapter library through their run path, which
# dpkg-shlibdeps does not follow: let it look in the build root.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_BINARY_DIR})

# The package's own documentation files and its ldconfig trigger.
set(doc ${CMAKE_BINARY_DIR}/package)
file(MAKE_DIRECTORY ${doc})
file(WRITE ${doc}/copyright
"Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: reelfx

Files: *
Copyright: 2026 the reelfx developers
License: other
 All rights reserved by the reelfx developers.
")
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
file(WRITE ${doc}/changelog
"reelfx (${PROJECT_VERSION}) unstable; urgency=medium

  * Built from the reelfx sources.

 -- ${CPACK_PACKAGE_CONTACT}  ${date}
")
execute_process(COMMAND gzip -9nf ${doc}/changelog)
# The libraries live in a folder of their own (lib/<architecture>/reelfx),
# found through run paths: no ldconfig, so no maintainer scripts (CPack's
# are taken out again, cmake/deb_without_scripts.cmake), and `apt-get remove`
# leaves no record behind. No manual page for the tool: its
# --help is the reference.
file(WRITE ${doc}/lintian-overrides "reelfx: no-manual-page [usr/bin/reelfx]\n")
set(CPACK_POST_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/deb_without_scripts.cmake)
install(FILES ${doc}/copyright ${doc}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/reelfx)
install(FILES ${doc}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME reelfx)

include(CPack)
