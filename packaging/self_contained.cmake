# Sets the flags for the option SELF_CONTAINED: a program that needs only the system's C library.
# Include this file before the program's folders are added.
if(NOT SELF_CONTAINED)
    return()
endif()

get_target_property(qt_type Qt${QT_MAJOR}::Core TYPE)
if(NOT qt_type STREQUAL "STATIC_LIBRARY")
    message(FATAL_ERROR
        "SELF_CONTAINED needs a static Qt, and ${Qt${QT_MAJOR}_DIR} is a shared one. "
        "Run tools/build-qt PREFIX, then configure with CMAKE_PREFIX_PATH=PREFIX.")
endif()

set(CMAKE_INTERPROCEDURAL_OPTIMIZATION ON)
if(APPLE)
    add_link_options(-Wl,-dead_strip)
else()
    # The object files contain machine code in addition to the intermediate code. The tests link the
    # machine code, which takes only seconds.
    set(CMAKE_CXX_COMPILE_OPTIONS_IPO -flto=auto -ffat-lto-objects)
    add_compile_options(-ffunction-sections -fdata-sections)
    # The program is compiled when it is linked, so the folder is mapped here too.
    add_link_options(-ffile-prefix-map=${PROJECT_BINARY_DIR}=.
        -static-libstdc++ -static-libgcc -Wl,--gc-sections
        $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:${CMAKE_CURRENT_LIST_DIR}/tls_get_addr.ld>)
endif()

# The tests added after this call link the libraries without optimising them again for each test.
macro(link_tests_without_optimisation)
    set(CMAKE_INTERPROCEDURAL_OPTIMIZATION OFF)
    if(NOT APPLE)
        add_link_options(-fno-lto)
    endif()
endmacro()
