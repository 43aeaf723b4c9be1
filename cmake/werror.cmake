# RQ_WERROR=OFF takes -Werror out of every target's compile options, so that
# a distribution's newer compiler can warn without failing the build.  The
# project's own builds keep it on.

function(rq_drop_werror dir)
    get_property(targets DIRECTORY "${dir}" PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(options ${target} COMPILE_OPTIONS)
        if(options)
            list(REMOVE_ITEM options -Werror)
            set_property(TARGET ${target} PROPERTY COMPILE_OPTIONS ${options})
        endif()
    endforeach()
    get_property(subdirs DIRECTORY "${dir}" PROPERTY SUBDIRECTORIES)
    foreach(subdir IN LISTS subdirs)
        rq_drop_werror("${subdir}")
    endforeach()
endfunction()

if(NOT RQ_WERROR)
    rq_drop_werror("${PROJECT_SOURCE_DIR}")
endif()
