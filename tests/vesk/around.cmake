# What surrounds the verbs: the completion and the manual page, and errors.
add_test(NAME vesk.completion_and_manual_page_are_what_help_says
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/descriptions_test.py $<TARGET_FILE:vesk>
        ${PROJECT_BINARY_DIR}/tools/vesk/vesk.bash ${PROJECT_BINARY_DIR}/tools/vesk/vesk.1)
