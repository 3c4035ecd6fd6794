# cpack runs this between installing and packing.

# Files get the date of the commit, not of the build. If the source tree has no Git history, the
# caller sets SOURCE_DATE_EPOCH.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(
        COMMAND git -C ${CMAKE_CURRENT_LIST_DIR} log -1 --format=%ct
        OUTPUT_VARIABLE commit_date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(commit_date)
        set(ENV{SOURCE_DATE_EPOCH} ${commit_date})
    endif()
endif()

# Debian's policy requires a changelog, a copyright file and compressed man pages.
if(CPACK_GENERATOR STREQUAL "DEB")
    set(documents ${CPACK_TEMPORARY_DIRECTORY}/usr/share/doc/${CPACK_PACKAGE_NAME})
    string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC) # of SOURCE_DATE_EPOCH
    file(WRITE ${documents}/changelog
        "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium\n\n"
        "  * Version ${CPACK_PACKAGE_VERSION}.\n\n"
        " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
    if(NOT EXISTS ${documents}/copyright)
        file(COPY_FILE ${CMAKE_CURRENT_LIST_DIR}/copyright ${documents}/copyright)
    endif()
    file(GLOB pages ${CPACK_TEMPORARY_DIRECTORY}/usr/share/man/man1/*.1)
    execute_process(COMMAND gzip -9 -n ${documents}/changelog ${pages} COMMAND_ERROR_IS_FATAL ANY)
    file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY}/usr/share FILE_PERMISSIONS
        OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endif()

# Sets the usual permissions of folders, regardless of the umask.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
