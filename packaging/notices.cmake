# Installs the files that the licences of the linked libraries require with the self-contained
# program: the libraries' names, licences and sources, and what is needed to link the program again
# with other versions of them.
get_filename_component(qt_prefix ${Qt${QT_MAJOR}_DIR}/../../.. ABSOLUTE)
if(NOT EXISTS ${qt_prefix}/build-qt.txt)
    message(FATAL_ERROR "The Qt in ${qt_prefix} was not built by tools/build-qt, so its source is "
        "unknown, and the notices would be incomplete. Run tools/build-qt PREFIX and set "
        "CMAKE_PREFIX_PATH to PREFIX.")
endif()
file(STRINGS ${qt_prefix}/build-qt.txt qt_source REGEX "^source: ")
string(REGEX REPLACE "^source: package (.*)" "Debian source package \\1" qt_source "${qt_source}")
string(REGEX REPLACE "^source: .*" "qtbase ${Qt${QT_MAJOR}_VERSION}" qt_source "${qt_source}")

set(qt_version ${Qt${QT_MAJOR}_VERSION})
set(qt_wanted_5 5.15)
set(qt_wanted_6 "6.4 or later")
set(qt_wanted ${qt_wanted_${QT_MAJOR}})
set(qt_libraries_5 "-lQt5Network -lQt5Core -lqtpcre2")
set(qt_libraries_6 "-lQt6Network -lQt6Core -lQt6BundledPcre2 -lQt6BundledZLIB")
set(qt_libraries ${qt_libraries_${QT_MAJOR}})

# library_source(RESULT PACKAGE MODULE): sets RESULT to Debian's source package and its version. If
# PACKAGE is not installed, sets it to the version that pkg-config reports for MODULE.
function(library_source result package module)
    execute_process(
        COMMAND dpkg-query --show --showformat "Debian source package \${source:Package} \${source:Version}" ${package}
        OUTPUT_VARIABLE source ERROR_QUIET)
    if(NOT source)
        execute_process(COMMAND ${PKG_CONFIG_EXECUTABLE} --modversion ${module}
            OUTPUT_VARIABLE version OUTPUT_STRIP_TRAILING_WHITESPACE)
        set(source "release ${version}")
    endif()
    set(${result} ${source} PARENT_SCOPE)
endfunction()
find_package(PkgConfig REQUIRED)
library_source(glib_source libglib2.0-dev glib-2.0)
library_source(pcre2_source libpcre2-dev libpcre2-8)

configure_file(NOTICES.md.in NOTICES.md @ONLY)
configure_file(relink.sh relink.sh @ONLY)
set(documents ${CMAKE_INSTALL_DATADIR}/doc/${PROJECT_NAME})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/NOTICES.md DESTINATION ${documents} COMPONENT bridge)
install(DIRECTORY ${qt_prefix}/licences/ DESTINATION ${documents}/licences COMPONENT bridge)
foreach(licence_text /usr/share/common-licenses/LGPL-2.1 /usr/share/doc/libpcre2-dev/copyright)
    if(NOT EXISTS ${licence_text})
        message(WARNING
            "${licence_text} is missing. Add the licence texts of GLib and PCRE2 to the package.")
    endif()
endforeach()
install(FILES /usr/share/common-licenses/LGPL-2.1 OPTIONAL
    DESTINATION ${documents}/licences COMPONENT bridge)
install(FILES /usr/share/doc/libpcre2-dev/copyright OPTIONAL
    DESTINATION ${documents}/licences RENAME libpcre2-copyright COMPONENT bridge)

# libraries_of(RESULT TARGET): sets RESULT to the project's own libraries that TARGET is linked with.
function(libraries_of result target)
    get_target_property(linked ${target} LINK_LIBRARIES)
    foreach(library IN LISTS linked)
        if(TARGET ${library})
            get_target_property(imported ${library} IMPORTED)
            if(NOT imported)
                libraries_of(more ${library})
                list(APPEND found ${library} ${more})
            endif()
        endif()
    endforeach()
    list(REMOVE_DUPLICATES found)
    set(${result} ${found} PARENT_SCOPE)
endfunction()

# bridge.o contains the program's own machine code. The compiler's intermediate code is removed,
# because no other compiler can read it, and debug information, because it names the build folder.
libraries_of(libraries tessaron-word-bridge)
list(TRANSFORM libraries REPLACE "(.+)" "$<TARGET_FILE:\\1>" OUTPUT_VARIABLE archives)
add_custom_command(OUTPUT bridge.o
    COMMAND ${CMAKE_CXX_COMPILER} -r -fno-lto -nostdlib -o bridge.o
        $<TARGET_OBJECTS:tessaron-word-bridge> -Wl,--whole-archive ${archives}
    COMMAND ${CMAKE_OBJCOPY} --strip-debug --remove-section=.gnu.lto_* --remove-section=.gnu.debuglto_* bridge.o
    DEPENDS $<TARGET_OBJECTS:tessaron-word-bridge> ${libraries}
    COMMAND_EXPAND_LISTS)
add_custom_target(relinkable ALL DEPENDS bridge.o)

install(FILES ${CMAKE_CURRENT_BINARY_DIR}/bridge.o ${qt_prefix}/build-qt.txt tls_get_addr.ld
    DESTINATION ${documents}/relink COMPONENT bridge)
install(PROGRAMS ${CMAKE_CURRENT_BINARY_DIR}/relink.sh DESTINATION ${documents}/relink COMPONENT bridge)
