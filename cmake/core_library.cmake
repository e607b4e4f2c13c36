# How the libraries are compiled and linked. What stands here holds whatever flags a packager adds: target options come
# after CMAKE_CXX_FLAGS.

# What holds for every library here: C++ without the C++ library, exporting nothing that is not listed.
function(vesk_set_library_options target)
    target_compile_features(${target} PRIVATE cxx_std_20)
    target_include_directories(${target} PRIVATE ${PROJECT_SOURCE_DIR})
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINKER_LANGUAGE C)  # not libstdc++
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wconversion -Wshadow -fno-exceptions -fno-rtti)
    if(VESK_LIBRARY_KIND STREQUAL "STATIC")  # a program then links what it calls alone, if it is linked with --gc-sections
        target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections
            $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)  # a unique symbol cannot be made local
    endif()
    if(VESK_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${VESK_SANITIZE})
    endif()
    # Debug information names the sources from the checkout's root on: two folders make the same library, and a debugger
    # that is started at the root finds them.
    # Said to the linker, too, which is the compiler again if it optimises.
    set(folders -fdebug-prefix-map=${PROJECT_SOURCE_DIR}=. -fdebug-prefix-map=${PROJECT_BINARY_DIR}=.)
    target_compile_options(${target} PRIVATE ${folders})
    target_link_options(${target} PRIVATE ${folders})
endfunction()

# The core needs nothing but memcpy, memset, strlen and the imported functions of the entity identifier.
function(vesk_set_core_options target)
    vesk_set_library_options(${target})
    target_compile_options(${target} PRIVATE
        -fno-stack-protector -U_FORTIFY_SOURCE  # each would import a function of its own
        $<$<CXX_COMPILER_ID:GNU>:-fno-tree-loop-distribute-patterns>  # a byte loop stays one, and is not memmove
        -fno-plt  # the imported functions are called often, and bound when the library is loaded
        -fno-align-functions  # padding made a tenth of the code and bought no time
        $<$<CXX_COMPILER_ID:GNU>:-fno-align-jumps -fno-align-loops -fno-align-labels>)
endfunction()

# The rules of the four operations, for libraries to be made of: exported by none.
function(vesk_add_runtime target)
    add_library(${target} OBJECT
        runtime/wire.cpp runtime/draft.cpp runtime/encode.cpp runtime/decode.cpp runtime/duplicate.cpp runtime/release.cpp)
    vesk_set_core_options(${target})
    target_link_libraries(${target} PUBLIC vesk_headers)
endfunction()

# Exports the functions and tables that the files SYMBOLS list and nothing else, under VERSION_NODE if that is given, and
# links as a packager would. A static library exports what the headers declare, and is linked with nothing.
function(vesk_set_exports target)
    cmake_parse_arguments(ARG "" "VERSION_NODE" "SYMBOLS" ${ARGN})
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "STATIC_LIBRARY")
        return()
    endif()
    set(symbols "")
    foreach(file ${ARG_SYMBOLS})
        set(symbols_file ${PROJECT_SOURCE_DIR}/${file})
        set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${symbols_file})
        file(STRINGS ${symbols_file} file_symbols)
        list(APPEND symbols ${file_symbols})
    endforeach()
    list(JOIN symbols ";\n        " symbol_lines)
    set(version_script ${PROJECT_BINARY_DIR}/${target}.map)
    file(CONFIGURE OUTPUT ${version_script} @ONLY CONTENT
"@ARG_VERSION_NODE@ {
    global:
        @symbol_lines@;
    local:
        *;
};
")
    # As needed: CMake adds the C++ library to what C++ objects are linked with, also by a C linker.
    target_link_options(${target} PRIVATE -Wl,--as-needed -Wl,--version-script=${version_script} -Wl,-z,text)
    set_target_properties(${target} PROPERTIES LINK_DEPENDS ${version_script})
    # The C compiler links, and CMAKE_CXX_FLAGS do not reach it. gcc wants to be told of more than one processor.
    if(CMAKE_CXX_FLAGS MATCHES "(^| )(-flto(=[^ ]*)?)( |$)")
        target_link_options(${target} PRIVATE $<IF:$<C_COMPILER_ID:GNU>,-flto=auto,${CMAKE_MATCH_2}>)
    endif()
    if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize" AND NOT VESK_SANITIZE)  # a sanitizer's functions come from the program
        target_link_options(${target} PRIVATE -Wl,--no-undefined)
    endif()
endfunction()

# A library of generated units, the objects of RUNTIME and further SOURCES. It exports what the units' .symbols files
# and the files SYMBOLS list.
function(vesk_add_library target)
    cmake_parse_arguments(ARG "" "RUNTIME;VERSION_NODE" "UNITS;SOURCES;SYMBOLS" ${ARGN})
    add_library(${target} ${VESK_LIBRARY_KIND} ${ARG_SOURCES})
    vesk_set_core_options(${target})
    foreach(unit ${ARG_UNITS})
        target_sources(${target} PRIVATE ${unit}/${unit}_exports.cpp)
        list(APPEND ARG_SYMBOLS ${unit}/${unit}.symbols)
    endforeach()
    vesk_set_exports(${target} VERSION_NODE "${ARG_VERSION_NODE}" SYMBOLS ${ARG_SYMBOLS})
    target_sources(${target} PRIVATE $<TARGET_OBJECTS:${ARG_RUNTIME}>)
    target_link_libraries(${target} PUBLIC $<BUILD_INTERFACE:vesk_headers>)
endfunction()

# Where the loader looks for the EID's library: beside the library itself, and two folders up, which is the same place
# for a library in glibc-hwcaps/<processor>/. A program's own search path does not reach what its libraries need.
# As RUNPATH, so that LD_LIBRARY_PATH still comes first. In the build tree the folder of another EID's library follows.
function(vesk_search_beside target)
    set(search_path "$ORIGIN" "$ORIGIN/../..")
    set_target_properties(${target} PROPERTIES
        BUILD_RPATH "${search_path}"
        BUILD_RPATH_USE_ORIGIN ON  # two build folders make the same library
        INSTALL_RPATH "${search_path}")
    target_link_options(${target} PRIVATE -Wl,--enable-new-dtags)
endfunction()
