# vesk_write_type_list(FILE MACRO): writes a header in which MACRO(X) stands for X(vesk_pem_data) and so on, for every type
# with exported functions, in the order of the units' .symbols files.
function(vesk_write_type_list file macro)
    set(type_lines "")
    foreach(unit inventory_db client_service)
        file(STRINGS ${PROJECT_SOURCE_DIR}/${unit}/${unit}.symbols encoders REGEX "_encode_ext$")
        foreach(encoder ${encoders})
            string(REGEX REPLACE "_encode_ext$" "" type ${encoder})
            string(APPEND type_lines " \\\n    X(${type})")
        endforeach()
    endforeach()
    file(CONFIGURE OUTPUT ${file} @ONLY CONTENT
"#pragma once
#define @macro@(X)@type_lines@
")
endfunction()
