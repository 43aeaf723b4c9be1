# Runs at install time (see cmake/install.cmake): CMAKE_INSTALL_PREFIX is the
# prefix of this install.  Relative directories are written under ${prefix},
# as pkg-config files usually are.
set(RQ_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
foreach(dir LIBDIR INCLUDEDIR DATADIR)
    if(NOT IS_ABSOLUTE "${RQ_PC_${dir}}")
        set(RQ_PC_${dir} "\${prefix}/${RQ_PC_${dir}}")
    endif()
endforeach()
configure_file("${RQ_PC_TEMPLATE}" "${RQ_PC_OUTPUT}" @ONLY)
