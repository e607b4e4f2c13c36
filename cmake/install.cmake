# Installing: each library with its headers, a file for pkg-config and one for find_package, as a component of its own:
# drin_eid, inventory, toolkit, text, tools. Shared and static libraries may be installed into one folder, from two builds.
# Nothing that is installed names a folder of this machine, so the installed tree may be moved.
include(CMakePackageConfigHelpers)
set(VESK_INSTALL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vesk_inventory)
string(TOLOWER ${VESK_LIBRARY_KIND} VESK_INSTALL_KIND)

# pkg-config's folders are counted from the place of the file.
file(RELATIVE_PATH pc_prefix ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})

# What find_package(COMPONENTS COMPONENT) includes: the TARGETS, as vesk::NAME.
function(vesk_install_targets component)
    if(NOT VESK_INSTALL)
        return()
    endif()
    set(export vesk_inventory-${component}-${VESK_INSTALL_KIND})
    install(TARGETS ${ARGN} EXPORT ${export} COMPONENT ${component} INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT ${export} NAMESPACE vesk:: DESTINATION ${VESK_INSTALL_PACKAGE_DIR} COMPONENT ${component})
endfunction()

# vesk_install_library(TARGET DESCRIPTION text [REQUIRES packages] [LIBS flags] [LIBS_PRIVATE flags] [HEADERS files]):
# the library vesk_COMPONENT. LIBS are flags for pkg-config beside the library itself, LIBS_PRIVATE for static linking.
function(vesk_install_library target)
    cmake_parse_arguments(ARG "" "DESCRIPTION;LIBS;LIBS_PRIVATE" "REQUIRES;HEADERS" ${ARGN})
    string(REPLACE vesk_ "" component ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${component})
    vesk_install_targets(${component} ${target})
    if(NOT VESK_INSTALL)
        return()
    endif()
    list(TRANSFORM ARG_HEADERS PREPEND ${PROJECT_SOURCE_DIR}/)
    install(FILES ${ARG_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk COMPONENT ${component})
    list(JOIN ARG_REQUIRES " " requires)
    get_target_property(type ${target} TYPE)
    set(library "-L\${libdir} -l${target}")
    if(type STREQUAL "INTERFACE_LIBRARY")  # headers alone
        set(library "")
    endif()
    # In two steps: the name of a target's file is known only after configuring.
    configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/${target}.pc.gen @ONLY)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/installed/${target}.pc INPUT ${PROJECT_BINARY_DIR}/${target}.pc.gen)
    install(FILES ${PROJECT_BINARY_DIR}/installed/${target}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT ${component})
endfunction()

# Who links vesk::inventory links the EID's library as well: vesk::drin_eid, which is the stand-in or, if there is none,
# the library that the package looks for.
set(eid_file "")
if(TARGET vesk_drin_eid)
    vesk_install_library(vesk_drin_eid DESCRIPTION "A stand-in for the library of the entity identifier")
    set(requires_eid REQUIRES vesk_drin_eid)
else()
    if(TARGET ${VESK_EID_LIBRARY})
        set(eid_file $<TARGET_LINKER_FILE_NAME:${VESK_EID_LIBRARY}>)
    else()
        get_filename_component(eid_file ${VESK_EID_LIBRARY} NAME)
    endif()
    set(requires_eid LIBS -l:${eid_file})
endif()
vesk_install_library(vesk_inventory DESCRIPTION ${PROJECT_DESCRIPTION} ${requires_eid} HEADERS ${VESK_PUBLIC_HEADERS})

if(VESK_INSTALL)
    install(FILES schema/client_service.proto schema/drin_eid.proto schema/inventory_db.proto
        DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk/schema COMPONENT inventory)
    install(FILES tools/gdb/vesk_gdb.py DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk/gdb COMPONENT inventory)
    # The golden vectors, for other implementations: docs/vectors.md.
    file(GLOB vectors CONFIGURE_DEPENDS vectors/*.jsonl)
    install(FILES ${vectors} vectors/SHA256SUMS DESTINATION ${CMAKE_INSTALL_DATADIR}/vesk/vectors COMPONENT inventory)
    # Whatever licence the owner chooses goes along; none has been chosen yet.
    if(EXISTS ${PROJECT_SOURCE_DIR}/LICENSE)
        install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/vesk COMPONENT inventory)
    endif()
    configure_package_config_file(cmake/vesk_inventory-config.cmake.in ${PROJECT_BINARY_DIR}/vesk_inventory-config.cmake.gen
        INSTALL_DESTINATION ${VESK_INSTALL_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO
        PATH_VARS CMAKE_INSTALL_LIBDIR)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/installed/vesk_inventory-config.cmake
        INPUT ${PROJECT_BINARY_DIR}/vesk_inventory-config.cmake.gen)
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/installed/vesk_inventory-config-version.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES
        ${PROJECT_BINARY_DIR}/installed/vesk_inventory-config.cmake
        ${PROJECT_BINARY_DIR}/installed/vesk_inventory-config-version.cmake
        DESTINATION ${VESK_INSTALL_PACKAGE_DIR} COMPONENT inventory)
endif()
