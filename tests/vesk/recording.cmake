# What the command records and replays, and what it sees change in a running service.
if(TARGET inventory_service)
    foreach(group Changes RealService BadServices Options)
        add_test(NAME vesk_watch.${group}
            COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/watch_test.py $<TARGET_FILE:vesk>
                $<TARGET_FILE:inventory_service> ${PROJECT_SOURCE_DIR}/examples/chassis.json ${group})
        set_tests_properties(vesk_watch.${group} PROPERTIES TIMEOUT 300)
    endforeach()
endif()
