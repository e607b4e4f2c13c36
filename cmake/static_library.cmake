# A static library here is an archive of one object, in which everything that the headers do not declare is local. Each
# library has the rules of runtime/ for its own types: under one name in one program the linker would keep one of them for
# all, and the core would take the imported identifier for one of its own types. It is also what lets a program find the
# identifier's description, which it looks for weakly: for that alone no object is taken out of an archive.
#
# To be included where the libraries are added: these variables hold for the folder and those below it.
set(merge ${CMAKE_C_COMPILER} ${CMAKE_C_FLAGS} -r -nostdlib -Wl,--force-group-allocation)
if(CMAKE_CXX_FLAGS MATCHES "(^| )-flto" AND CMAKE_C_COMPILER_ID STREQUAL "GNU")
    list(APPEND merge -flto=auto -flinker-output=nolto-rel)  # machine code, whose symbols can be made local
endif()
list(JOIN merge " " merge)
foreach(language C CXX)
    set(CMAKE_${language}_CREATE_STATIC_LIBRARY
        "${merge} <OBJECTS> -o <TARGET>.o"
        "${CMAKE_OBJCOPY} --localize-hidden <TARGET>.o"
        "${CMAKE_COMMAND} -E rm -f <TARGET>"
        "<CMAKE_AR> qc <TARGET> <TARGET>.o"
        "<CMAKE_RANLIB> <TARGET>"
        "${CMAKE_COMMAND} -E rm <TARGET>.o")
endforeach()
