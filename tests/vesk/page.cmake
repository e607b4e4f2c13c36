# The page of `vesk map --html`: what it lets in, and, in a browser, how it behaves. The browser is heavy: ctest --preset
# long. Debian's module is for Debian's interpreter.
add_test(NAME vesk.page_lets_in_its_own_style_and_script_alone
    COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/page_hashes.py ${PROJECT_SOURCE_DIR}/tools/vesk/page.html)
foreach(case Hover Keyboard Search Opening Strings Network Themes ScreenReader)
    add_test(NAME vesk_page.${case}
        COMMAND /usr/bin/python3 -B ${CMAKE_CURRENT_SOURCE_DIR}/page_test.py $<TARGET_FILE:vesk> ${case})
    set_tests_properties(vesk_page.${case} PROPERTIES LABELS long TIMEOUT 300)
endforeach()
