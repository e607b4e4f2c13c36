# The library once more for each processor that VESK_CPU names, in glibc-hwcaps/<processor>/ beside the plain one, where
# the C library's loader looks first on a machine that can run it. Same sources, SONAME, symbols and bytes; to be loaded,
# not to be linked with, so it is installed without a development link.

# Where runtime/ may use pext and pdep. Not before: some processors of x86-64-v3 have them in slow microcode.
set(processors_with_fast_pext x86-64-v4)

foreach(processor ${VESK_CPU})
    set(runtime vesk_runtime-${processor})
    set(inventory vesk_inventory-${processor})
    vesk_add_runtime(${runtime})
    vesk_add_inventory(${inventory} ${runtime})
    foreach(target ${runtime} ${inventory})  # PUBLIC for who includes the runtime's headers, as tests do
        target_compile_options(${target} PUBLIC -march=${processor})
        if(processor IN_LIST processors_with_fast_pext)
            target_compile_definitions(${target} PUBLIC VESK_PEXT)
        endif()
    endforeach()
    set_target_properties(${inventory} PROPERTIES
        OUTPUT_NAME vesk_inventory
        LIBRARY_OUTPUT_DIRECTORY $<TARGET_FILE_DIR:vesk_inventory>/glibc-hwcaps/${processor})
    if(VESK_INSTALL)
        install(TARGETS ${inventory} LIBRARY NAMELINK_SKIP COMPONENT inventory
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/${processor})
    endif()
endforeach()
