# Collects the names that public headers mark with an export macro
# ("RQ_API ... name(" or "RQ_API extern ... name;") and writes a linker
# version script that exports exactly those under VERS_1.  Linked with
# --no-undefined-version, a declared name with no definition fails the build.

function(rq_exported_names out_var macro)
    set(names "")
    foreach(header IN LISTS ARGN)
        file(STRINGS "${header}" lines REGEX "^[ \t]*${macro}[ \t]")
        foreach(line IN LISTS lines)
            if(line MATCHES "${macro}[^;(]*[^A-Za-z0-9_]([A-Za-z_][A-Za-z0-9_]*)[ \t]*[(;\\[]")
                list(APPEND names "${CMAKE_MATCH_1}")
            endif()
        endforeach()
    endforeach()
    list(REMOVE_DUPLICATES names)
    list(SORT names)
    set(${out_var} "${names}" PARENT_SCOPE)
endfunction()

function(rq_version_script target macro)
    rq_exported_names(names ${macro} ${ARGN})
    set(script "${CMAKE_CURRENT_BINARY_DIR}/${target}.map")
    set(body "VERS_1 {\n  global:\n")
    foreach(name IN LISTS names)
        string(APPEND body "    ${name};\n")
    endforeach()
    string(APPEND body "  local:\n    *;\n};\n")
    file(CONFIGURE OUTPUT "${script}" CONTENT "${body}" @ONLY)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARGN})
    target_link_options(${target} PRIVATE
        "LINKER:--version-script=${script}"
        "LINKER:--no-undefined-version")
    # clang does not link its sanitizer runtimes into shared libraries, so
    # the fuzzing build cannot insist that every symbol resolves at link time.
    if(NOT RQ_BUILD_FUZZ)
        target_link_options(${target} PRIVATE "LINKER:-z,defs")
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${script}")
endfunction()
