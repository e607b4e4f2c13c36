# The public headers live beside what they belong to, and are included as <vesk/...>, before and after installing.
# One folder of links in the build tree brings them together.
set(VESK_PUBLIC_HEADERS
    runtime/vesk_runtime.h runtime/vesk_facts.h drin_eid/drin_eid.h inventory_db/inventory_db.h client_service/client_service.h)

add_library(vesk_headers INTERFACE)
target_include_directories(vesk_headers INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)

file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include/vesk)
function(vesk_link_headers)
    foreach(header ${ARGN})
        get_filename_component(name ${header} NAME)
        file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${header} ${PROJECT_BINARY_DIR}/include/vesk/${name} SYMBOLIC)
    endforeach()
endfunction()
vesk_link_headers(${VESK_PUBLIC_HEADERS})
