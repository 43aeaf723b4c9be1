# Installation: the two libraries with their SONAME and development links,
# the public headers, the site data under share/rqcore, the programs, a
# pkg-config file and a CMake package (find_package(rqcore 7 CONFIG) gives
# rqcore::rqcore and rqcore::rqsis).  Headers and data are installed by
# directory, so a new family's header or data file needs no edit here.

include(CMakePackageConfigHelpers)

set(RQ_INSTALL_DATADIR "${CMAKE_INSTALL_DATADIR}/rqcore")
set(RQ_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/rqcore")

install(TARGETS rqcore rqsis EXPORT rqcoreTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" NAMELINK_SKIP
    INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
install(TARGETS rqcore rqsis
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" NAMELINK_ONLY COMPONENT Development)

install(DIRECTORY include/rqcore DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT Development FILES_MATCHING PATTERN "*.h")
# The platform layer's test interface (block accounting, fault injection) is
# for this project's tests; a consumer asks for it explicitly.
if(RQ_INSTALL_SIS_TEST)
    install(DIRECTORY include/rqsis DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT Development FILES_MATCHING PATTERN "*.h")
else()
    install(DIRECTORY include/rqsis DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        COMPONENT Development FILES_MATCHING PATTERN "*.h" PATTERN "rqsis_test.h" EXCLUDE)
endif()

# All of data/: character-set maps and charmap.config, catalogs, the zone
# file, and the sample message that the installed demo reads by default.
install(DIRECTORY data/ DESTINATION "${RQ_INSTALL_DATADIR}")

# The CMake package.  Paths in it are relative to where it lands, so an
# installed tree can be moved.
install(EXPORT rqcoreTargets NAMESPACE rqcore:: DESTINATION "${RQ_INSTALL_CMAKEDIR}"
    COMPONENT Development)
configure_package_config_file(cmake/install/rqcoreConfig.cmake.in
    "${PROJECT_BINARY_DIR}/rqcoreConfig.cmake"
    INSTALL_DESTINATION "${RQ_INSTALL_CMAKEDIR}"
    PATH_VARS RQ_INSTALL_DATADIR)
# The version file also refuses a package built for the other word size.
write_basic_package_version_file("${PROJECT_BINARY_DIR}/rqcoreConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/rqcoreConfig.cmake" "${PROJECT_BINARY_DIR}/rqcoreConfigVersion.cmake"
    DESTINATION "${RQ_INSTALL_CMAKEDIR}" COMPONENT Development)

# rqcore.pc is written at install time, so that its prefix is the one the
# install uses (cmake --install --prefix), not the one configured.
install(CODE "
    set(RQ_PC_TEMPLATE \"${PROJECT_SOURCE_DIR}/cmake/install/rqcore.pc.in\")
    set(RQ_PC_OUTPUT \"${PROJECT_BINARY_DIR}/rqcore.pc\")
    set(RQ_PC_VERSION \"${PROJECT_VERSION}\")
    set(RQ_PC_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
    set(RQ_PC_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(RQ_PC_DATADIR \"${RQ_INSTALL_DATADIR}\")
" COMPONENT Development)
install(SCRIPT cmake/install/write_pc.cmake COMPONENT Development)
install(FILES "${PROJECT_BINARY_DIR}/rqcore.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT Development)

# Installed programs find the libraries beside them (bin/../lib) when the
# prefix is not one the dynamic linker searches anyway.
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    file(RELATIVE_PATH RQ_BIN_TO_LIB "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set(RQ_PROGRAM_INSTALL_RPATH "$ORIGIN/${RQ_BIN_TO_LIB}")
    # A RUNPATH serves only its own object: librqcore finds librqsis itself.
    set_target_properties(rqcore PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()
# Installed programs find the data beside them (bin/../share/rqcore).
file(RELATIVE_PATH RQ_BIN_TO_DATA "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_DATADIR}/rqcore")

# Every program under examples/ (the demo) and tools/ (rqdata) goes to bin/.
set(RQ_PROGRAM_DIRS)
if(RQ_BUILD_EXAMPLES)
    list(APPEND RQ_PROGRAM_DIRS examples)
endif()
if(RQ_BUILD_TOOLS)
    list(APPEND RQ_PROGRAM_DIRS tools)
endif()
foreach(dir IN LISTS RQ_PROGRAM_DIRS)
    get_property(RQ_PROGRAMS DIRECTORY ${dir} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(program IN LISTS RQ_PROGRAMS)
        get_target_property(type ${program} TYPE)
        if(type STREQUAL "EXECUTABLE")
            target_compile_definitions(${program} PRIVATE RQ_INSTALLED_DATA_DIR="${RQ_BIN_TO_DATA}")
            set_target_properties(${program} PROPERTIES INSTALL_RPATH "${RQ_PROGRAM_INSTALL_RPATH}")
            install(TARGETS ${program} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
        endif()
    endforeach()
endforeach()

# ---- checks of the installed library ------------------------------------------
# Both run in the x86_64 and i386 test presets: a program outside the source
# tree builds against an installed copy, and the ABI against the baseline.
if(RQ_BUILD_TESTS AND NOT RQ_SANITIZE AND NOT RQ_BUILD_FUZZ)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
        set(RQ_ABI_ARCH i386)
        set(RQ_CONSUMER_CFLAGS -m32)
    else()
        set(RQ_ABI_ARCH x86_64)
        set(RQ_CONSUMER_CFLAGS "")
    endif()
    add_test(NAME install.consumer
        COMMAND bash "${PROJECT_SOURCE_DIR}/tests/install/consumer.sh"
            "${PROJECT_BINARY_DIR}" "${CMAKE_C_COMPILER}" "${RQ_CONSUMER_CFLAGS}")
    set_tests_properties(install.consumer PROPERTIES TIMEOUT 300)
    # The ABI baseline is read from debug information.
    if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
        add_test(NAME install.abi
            COMMAND bash "${PROJECT_SOURCE_DIR}/scripts/abi.sh" --check "${PROJECT_BINARY_DIR}")
        set_tests_properties(install.abi PROPERTIES TIMEOUT 300)
    endif()
endif()
