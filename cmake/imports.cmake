# Writes which names a built module needs of which library, as { "LIBRARY": ["NAME", ...], ... }:
# cmake -DMODULE=FILE -DMESSAGING=FILE -DCONTROL=FILE -DNM=TOOL|-DOBJDUMP=TOOL -DOUTPUT=FILE -P imports.cmake
# The import table of a module for Windows says it, which OBJDUMP reads. Elsewhere it is what the module leaves undefined
# and the library defines, which NM reads.
cmake_minimum_required(VERSION 3.25)

function(read result)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE text COMMAND_ERROR_IS_FATAL ANY)
    set(${result} "${text}" PARENT_SCOPE)
endfunction()

set(json "{}")
foreach(library IN ITEMS "${MESSAGING}" "${CONTROL}")
    get_filename_component(name "${library}" NAME)
    set(needed "")
    if(OBJDUMP)
        read(tables "${OBJDUMP}" -p "${MODULE}")
        string(REGEX MATCH "DLL Name: ${name}\n[^\n]*\n(\t[0-9a-f]+\t[^\n]*\n)*" table "${tables}")
        string(REGEX MATCHALL "[^ \t\n]+\n" needed "${table}")
        list(POP_FRONT needed) # the library's own name
        list(POP_FRONT needed) # the heading
        list(TRANSFORM needed STRIP)
    else()
        read(undefined "${NM}" --dynamic --undefined-only --format=posix "${MODULE}")
        read(defined "${NM}" --dynamic --defined-only --format=posix "${library}")
        string(REGEX MATCHALL "_Z[^ \n]+" undefined "${undefined}")
        string(REGEX MATCHALL "_Z[^ \n]+" defined "${defined}")
        foreach(symbol IN LISTS undefined)
            if(symbol IN_LIST defined)
                list(APPEND needed "${symbol}")
            endif()
        endforeach()
    endif()
    if(NOT needed)
        message(FATAL_ERROR "${MODULE} needs nothing of ${name}")
    endif()
    list(JOIN needed "\", \"" needed)
    string(JSON json SET "${json}" "${name}" "[\"${needed}\"]")
endforeach()
file(WRITE "${OUTPUT}" "${json}\n")
