# What the command records and replays, and what it sees change in a running service.
function(add_recorded_program name source)
    add_executable(${name} ${source})
    target_compile_definitions(${name} PRIVATE _GNU_SOURCE ${ARGN}
        VESK_INVENTORY_SONAME="libvesk_inventory.so.${PROJECT_VERSION_MAJOR}")
    target_compile_options(${name} PRIVATE -Wall -Wextra)
    target_link_libraries(${name} PRIVATE vesk_headers ${CMAKE_DL_LIBS} pthread)
endfunction()

if(TARGET vesk_recorder)
    add_recorded_program(recorded_calls recorded_calls.c)
    target_link_libraries(recorded_calls PRIVATE vesk::inventory)
    add_recorded_program(recorded_calls_statically recorded_calls.c)
    target_link_libraries(recorded_calls_statically PRIVATE
        $<TARGET_OBJECTS:vesk_inventory> $<TARGET_OBJECTS:vesk_runtime> ${VESK_EID_LIBRARY})
    add_recorded_program(recorded_calls_of_plug_in recorded_calls.c WITHOUT_CALLS)
    add_library(recorded_plug_in MODULE recorded_plug_in.c)
    target_link_libraries(recorded_plug_in PRIVATE vesk::inventory)
    add_recorded_program(recorded_ratio recorded_ratio.c)
    target_compile_options(recorded_ratio PRIVATE -O2)
    target_link_libraries(recorded_ratio PRIVATE vesk::inventory)
    target_link_options(recorded_ratio PRIVATE -Wl,--no-as-needed)  # it finds every function by its name
endif()

set(groups Replay)
set(recorded_programs -)
if(TARGET vesk_recorder)
    list(APPEND groups Record Refused)
    set(recorded_programs ${CMAKE_CURRENT_BINARY_DIR})
    if(VESK_PLAIN_LIBRARIES)  # others have other code and other imports
        list(APPEND groups Library)
    endif()
    if(VESK_PLAIN_LIBRARIES AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug" AND TARGET inventory_client)
        list(APPEND groups Ratio)
        add_test(NAME docs.page_recording_is_what_runs
            COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/tests/docs/page.py ${PROJECT_SOURCE_DIR}/docs/recording.md
                --file ${PROJECT_SOURCE_DIR}/examples/chassis.json
                $<TARGET_FILE_DIR:vesk> $<TARGET_FILE_DIR:inventory_client> $<TARGET_FILE_DIR:recorded_calls>)
    endif()
endif()
foreach(group ${groups})
    add_test(NAME vesk_record.${group}
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/record_test.py $<TARGET_FILE:vesk> ${recorded_programs}
            ${PROJECT_SOURCE_DIR} ${group})
    set_tests_properties(vesk_record.${group} PROPERTIES TIMEOUT 300)
endforeach()

if(TARGET inventory_service)
    foreach(group Changes RealService BadServices Options)
        add_test(NAME vesk_watch.${group}
            COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/watch_test.py $<TARGET_FILE:vesk>
                $<TARGET_FILE:inventory_service> ${PROJECT_SOURCE_DIR}/examples/chassis.json ${group})
        set_tests_properties(vesk_watch.${group} PROPERTIES TIMEOUT 300)
    endforeach()
endif()
