# cm_install_run_path(target install_dir): the installed target finds the project's
# libraries through a run path relative to itself ($ORIGIN/...), computed from the
# directory it is installed to, so that an install works from any prefix and can be moved
# without LD_LIBRARY_PATH. The build tree keeps CMake's absolute build run path; the
# install step replaces it with this one.
function(cm_install_run_path target install_dir)
    file(RELATIVE_PATH to_libdir "/prefix/${install_dir}" "/prefix/${CMAKE_INSTALL_LIBDIR}")
    string(REGEX REPLACE "/$" "" to_libdir "${to_libdir}")
    if(to_libdir STREQUAL "")
        set(run_path "$ORIGIN")
    else()
        set(run_path "$ORIGIN/${to_libdir}")
    endif()
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "${run_path}")
endfunction()
