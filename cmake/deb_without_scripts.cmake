# Run by cpack after it has written the Debian package (CPACK_POST_BUILD_SCRIPTS).
# CPack adds postinst and postrm scripts calling ldconfig to any package with
# a shared object under /usr/lib, here the frei0r plug-ins. Nothing of this
# package is in ldconfig's folders (the libraries are found through run
# paths), and a package with a postrm stays known to dpkg after
# `apt-get remove` until it is purged: the package is rebuilt without them.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
    if(NOT deb MATCHES "\\.deb$")
        continue()
    endif()
    set(root ${deb}.root)
    file(REMOVE_RECURSE ${root})
    execute_process(COMMAND dpkg-deb -R ${deb} ${root} RESULT_VARIABLE rc)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "dpkg-deb -R ${deb} failed")
    endif()
    file(REMOVE ${root}/DEBIAN/postinst ${root}/DEBIAN/postrm)
    execute_process(COMMAND dpkg-deb --root-owner-group -Zxz --build ${root} ${deb}
                    RESULT_VARIABLE rc OUTPUT_QUIET)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "dpkg-deb --build ${deb} failed")
    endif()
    file(REMOVE_RECURSE ${root})
endforeach()
