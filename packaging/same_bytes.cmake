# cpack runs this between installing and packing.

# Folders as everybody else makes them, whatever the umask.
file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

# The date of the commit, not of the build. A source tree without its history says the date itself,
# in SOURCE_DATE_EPOCH.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(
        COMMAND git -C ${CMAKE_CURRENT_LIST_DIR} log -1 --format=%ct
        OUTPUT_VARIABLE commit_date OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(commit_date)
        set(ENV{SOURCE_DATE_EPOCH} ${commit_date})
    endif()
endif()
