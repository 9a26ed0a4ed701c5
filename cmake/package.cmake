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
command-line tool that renders images and video through it, and one frei0r
plug-in per effect, so that the effects are available in ffmpeg, GStreamer,
MLT and Kdenlive. A host library with its headers lets other programs load
the module.")
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
# The libraries are a plug-in module and its companions, loaded by path or
# through run paths, never linked by other packages: no version in their
# names, no library package of their own.
file(WRITE ${doc}/lintian-overrides
"reelfx: package-name-doesnt-match-sonames *
reelfx: shared-library-lacks-version *
reelfx: no-manual-page [usr/bin/reelfx]
reelfx: maintscript-calls-ldconfig *
")
# (CPack's own postinst and postrm call ldconfig as well; harmless.)
file(WRITE ${doc}/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${doc}/triggers)
install(FILES ${doc}/copyright ${doc}/changelog.gz DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/reelfx)
install(FILES ${doc}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME reelfx)

include(CPack)
