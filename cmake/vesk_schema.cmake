# vesk_add_schema(TARGET [STATIC | SHARED] [PREFIX NAME] [IMPORT_DIRS FOLDER...] PROTOS FILE...): a library of the messages of
# the .proto files and of all that they hold, made by protoc with protoc-gen-vesk.
#
#   TARGET        The library: shared, if nothing else is said and BUILD_SHARED_LIBS is not OFF. It exports the functions of its
#                 messages and TARGET_all_types, TARGET_type_named and vesk_schema_all_types of TARGET_types.h, nothing else.
#   PREFIX        What names in C begin with, instead of each file's package.
#   IMPORT_DIRS   Where files and their imports are looked for, before the current source folder; as protoc's -I.
#   PROTOS        Files, as another file would import them.
#
# Who links TARGET includes "FILE.h" in C and C++, and "FILE.hpp" for the view. The build makes the library anew if a file or
# one that it imports changes. C++20 compiles it; a C compiler links it, if the project has C.
function(vesk_add_schema target)
    cmake_parse_arguments(PARSE_ARGV 1 ARG "STATIC;SHARED" "PREFIX" "IMPORT_DIRS;PROTOS")
    if(ARG_UNPARSED_ARGUMENTS OR NOT ARG_PROTOS)
        message(FATAL_ERROR
            " vesk_add_schema(${target} [STATIC|SHARED] [PREFIX NAME] [IMPORT_DIRS FOLDER...] PROTOS FILE...): "
            "no PROTOS, or not understood: ${ARG_UNPARSED_ARGUMENTS}")
    endif()
    if(NOT CMAKE_CXX_COMPILER_LOADED)
        message(FATAL_ERROR " vesk_add_schema: the project has no C++; say so: project(NAME LANGUAGES C CXX)")
    endif()
    find_program(VESK_PROTOC protoc DOC "The protobuf compiler, for vesk_add_schema")
    if(NOT VESK_PROTOC)
        message(FATAL_ERROR " vesk_add_schema: there is no protoc; install protobuf-compiler, or name it: -DVESK_PROTOC=FILE")
    endif()
    set(kind SHARED)
    if(ARG_STATIC OR (NOT ARG_SHARED AND DEFINED BUILD_SHARED_LIBS AND NOT BUILD_SHARED_LIBS))
        set(kind STATIC)
    endif()

    set(folders "")
    foreach(folder ${ARG_IMPORT_DIRS} ${CMAKE_CURRENT_SOURCE_DIR})
        get_filename_component(folder ${folder} ABSOLUTE)
        list(APPEND folders ${folder})
    endforeach()
    list(TRANSFORM folders PREPEND -I OUTPUT_VARIABLE import_options)
    set(files "")
    foreach(proto ${ARG_PROTOS})
        _vesk_add_file(${proto} "${folders}" files)
        if(NOT _vesk_found)
            message(FATAL_ERROR " vesk_add_schema(${target}): there is no ${proto} in ${folders}")
        endif()
    endforeach()

    string(MAKE_C_IDENTIFIER ${target} library)
    set(options library=${library})
    if(ARG_PREFIX)
        string(APPEND options ,prefix=${ARG_PREFIX})
    endif()
    set(made ${CMAKE_CURRENT_BINARY_DIR}/${target}_schema)
    file(MAKE_DIRECTORY ${made})
    add_custom_command(OUTPUT ${made}/${library}_sources.cpp ${made}/${library}.map
        COMMAND ${VESK_PROTOC} ${import_options} --plugin=protoc-gen-vesk=$<TARGET_FILE:vesk::protoc-gen-vesk>
                --vesk_out=${options}:${made} ${ARG_PROTOS}
        DEPENDS ${files} vesk::protoc-gen-vesk
        COMMENT "Generating the messages of ${target}"
        VERBATIM)
    add_library(${target} ${kind} ${made}/${library}_sources.cpp ${made}/${library}.map)
    target_compile_features(${target} PRIVATE cxx_std_20)
    target_compile_options(${target} PRIVATE -fno-exceptions -fno-rtti)
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${made}>)
    target_link_libraries(${target} PUBLIC $<BUILD_INTERFACE:vesk::schema>)
    set_target_properties(${target} PROPERTIES
        POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        UNITY_BUILD OFF)
    if(CMAKE_C_COMPILER_LOADED)
        set_target_properties(${target} PROPERTIES LINKER_LANGUAGE C)  # not the C++ library
    endif()
    if(kind STREQUAL "SHARED")
        target_link_options(${target} PRIVATE -Wl,--as-needed -Wl,--version-script=${made}/${library}.map)
        set_target_properties(${target} PROPERTIES LINK_DEPENDS ${made}/${library}.map)
    endif()
endfunction()

# Adds a file, and those that it imports, to the list named `result`, as whole paths. What is not in the folders is protoc's to
# find or to miss. Sets _vesk_found to whether the file itself was there.
function(_vesk_add_file proto folders result)
    set(_vesk_found FALSE PARENT_SCOPE)
    foreach(folder ${folders})
        set(file ${folder}/${proto})
        if(NOT EXISTS ${file})
            continue()
        endif()
        set(found ${${result}})
        if(NOT file IN_LIST found)
            list(APPEND found ${file})
            set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})  # its imports may be others then
            file(STRINGS ${file} imports REGEX "^[ \t]*import[ \t]")
            foreach(import ${imports})
                if(import MATCHES "\"([^\"]+)\"")
                    _vesk_add_file(${CMAKE_MATCH_1} "${folders}" found)
                endif()
            endforeach()
        endif()
        set(${result} ${found} PARENT_SCOPE)
        set(_vesk_found TRUE PARENT_SCOPE)
        return()
    endforeach()
endfunction()
