# Installing: the headers, the libraries, a package for find_package and a file for pkg-config. Nothing that is
# installed names a folder of this machine, so the installed tree may be moved.
include(CMakePackageConfigHelpers)
set(VESK_INSTALL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vesk_inventory)

install(FILES ${VESK_PUBLIC_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk)

# Who links vesk::inventory links the EID's library as well: vesk::drin_eid, which is the stand-in or, if there is none,
# the library that the package looks for.
set(installed_libraries vesk_inventory vesk_headers)
set_target_properties(vesk_inventory PROPERTIES EXPORT_NAME inventory)
set_target_properties(vesk_headers PROPERTIES EXPORT_NAME headers)
if(TARGET vesk_drin_eid)
    list(APPEND installed_libraries vesk_drin_eid)
    set_target_properties(vesk_drin_eid PROPERTIES EXPORT_NAME drin_eid)
    set(eid_file "")
    set(eid_linker_flag -lvesk_drin_eid)
else()
    if(TARGET ${VESK_EID_LIBRARY})
        set(eid_file $<TARGET_LINKER_FILE_NAME:${VESK_EID_LIBRARY}>)
    else()
        get_filename_component(eid_file ${VESK_EID_LIBRARY} NAME)
    endif()
    set(eid_linker_flag -l:${eid_file})
endif()
install(TARGETS ${installed_libraries} EXPORT vesk_inventory_targets INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT vesk_inventory_targets NAMESPACE vesk:: FILE vesk_inventory-targets.cmake
    DESTINATION ${VESK_INSTALL_PACKAGE_DIR})

# pkg-config's folders are counted from the place of the file.
set(pc_dir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH pc_prefix ${pc_dir} ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pc_prefix ${pc_prefix})
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_PREFIX} ${CMAKE_INSTALL_FULL_INCLUDEDIR})

# Each in two steps: the name of a target's file is known only after configuring.
configure_package_config_file(cmake/vesk_inventory-config.cmake.in ${PROJECT_BINARY_DIR}/vesk_inventory-config.cmake.gen
    INSTALL_DESTINATION ${VESK_INSTALL_PACKAGE_DIR} NO_SET_AND_CHECK_MACRO PATH_VARS CMAKE_INSTALL_LIBDIR)
configure_file(cmake/vesk_inventory.pc.in ${PROJECT_BINARY_DIR}/vesk_inventory.pc.gen @ONLY)
foreach(file vesk_inventory-config.cmake vesk_inventory.pc)
    file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/installed/${file} INPUT ${PROJECT_BINARY_DIR}/${file}.gen)
endforeach()
write_basic_package_version_file(${PROJECT_BINARY_DIR}/installed/vesk_inventory-config-version.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/installed/vesk_inventory-config.cmake
    ${PROJECT_BINARY_DIR}/installed/vesk_inventory-config-version.cmake
    DESTINATION ${VESK_INSTALL_PACKAGE_DIR})
install(FILES ${PROJECT_BINARY_DIR}/installed/vesk_inventory.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# vesk_install_library(TARGET REQUIRES HEADERS...): installs a library that stands beside the core, with its headers and a
# pkg-config file that requires REQUIRES.
function(vesk_install_library target requires)
    string(REPLACE vesk_ "" export_name ${target})
    set_target_properties(${target} PROPERTIES EXPORT_NAME ${export_name})
    install(TARGETS ${target} EXPORT vesk_inventory_targets INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    list(TRANSFORM ARGN PREPEND ${PROJECT_SOURCE_DIR}/)
    install(FILES ${ARGN} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/vesk)
    get_target_property(description ${target} DESCRIPTION)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/library.pc.in ${PROJECT_BINARY_DIR}/installed/${target}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/installed/${target}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
endfunction()
