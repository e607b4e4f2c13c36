# What surrounds the verbs: the completion and the manual page, and errors.
add_test(NAME vesk.completion_and_manual_page_are_what_help_says
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/descriptions_test.py $<TARGET_FILE:vesk>
        ${PROJECT_BINARY_DIR}/tools/vesk/vesk.bash ${PROJECT_BINARY_DIR}/tools/vesk/vesk.1)
foreach(case Inputs Outputs)
    add_test(NAME vesk_errors.${case}
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/errors_test.py $<TARGET_FILE:vesk> ${case})
endforeach()
if(VESK_PLAIN_LIBRARIES)  # a sanitizer wants to be loaded before anything else, and much room for its addresses
    add_test(NAME vesk_errors.Memory
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/errors_test.py $<TARGET_FILE:vesk> Memory)
    add_library(changes_a_file SHARED changes_a_file.c)
    target_compile_definitions(changes_a_file PRIVATE _GNU_SOURCE)
    target_link_libraries(changes_a_file PRIVATE ${CMAKE_DL_LIBS})
    add_test(NAME vesk_errors.Changing
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/errors_test.py $<TARGET_FILE:vesk> Changing
            $<TARGET_FILE:changes_a_file>)
endif()
foreach(case Colours Progress)
    add_test(NAME vesk_terminal.${case}
        COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/terminal_test.py $<TARGET_FILE:vesk> ${case})
endforeach()
