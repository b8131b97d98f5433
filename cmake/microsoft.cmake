# A second compiler, for code that speaks the binary interface of the Microsoft compiler: its objects are linked by the
# first one's linker, which neither reads their export directives nor knows the names that they import.
foreach(tool clang++ llvm-nm llvm-objcopy llvm-readobj)
    find_program(BRIVON_${tool} ${tool} REQUIRED)
endforeach()
set(BRIVON_MICROSOFT_SCRIPT "${CMAKE_CURRENT_LIST_DIR}/microsoft_names.cmake")

# brivon_microsoft_object(NAME SOURCE [RENAME OLD=NEW] [FLAGS...]): NAME.obj in the current binary folder, and in NAME.def
# what it exports. There is no library for it but the system's, so that the code is freestanding.
function(brivon_microsoft_object name source)
    cmake_parse_arguments(PARSE_ARGV 2 with "" RENAME FLAGS)
    set(object "${CMAKE_CURRENT_BINARY_DIR}/${name}.obj")
    set(rename "")
    if(with_RENAME)
        set(rename "--redefine-sym=${with_RENAME}")
    endif()
    file(RELATIVE_PATH relative "${CMAKE_CURRENT_BINARY_DIR}" "${source}")
    add_custom_command(OUTPUT "${object}" "${CMAKE_CURRENT_BINARY_DIR}/${name}.def" VERBATIM
        DEPENDS "${source}" "${BRIVON_MICROSOFT_SCRIPT}" DEPFILE "${object}.d"
        COMMENT "Building ${name}.obj for the Microsoft interface"
        WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" # names of unnamed namespaces are made of the path that is given
        COMMAND "${BRIVON_clang++}" --target=x86_64-pc-windows-msvc -std=c++17 -O2 -ffreestanding -nostdinc++
            -fexceptions -fcxx-exceptions -fno-threadsafe-statics -fno-sized-deallocation
            ${BRIVON_WARNINGS} ${with_FLAGS} -MD -MF "${object}.d" -MT "${object}" -c "${relative}" -o "${object}"
        COMMAND "${CMAKE_COMMAND}" "-DTOOL=${BRIVON_llvm-readobj}" "-DEXPORTS_OF=${object}"
            "-DTO=${CMAKE_CURRENT_BINARY_DIR}/${name}.def" -P "${BRIVON_MICROSOFT_SCRIPT}"
        COMMAND "${BRIVON_llvm-objcopy}" --remove-section=.drectve ${rename} "${object}")
endfunction()

# brivon_microsoft_imports(LIST LIBRARY:NAME...): for the object of each NAME, an import library libLIBRARY.a in the
# current binary folder; and what is imported from which library, as JSON.
function(brivon_microsoft_imports list)
    set(objects "")
    set(commands "")
    set(imports "")
    foreach(pair ${ARGN})
        string(REPLACE ":" ";" pair ${pair})
        list(GET pair 0 library)
        list(GET pair 1 name)
        list(APPEND objects "${CMAKE_CURRENT_BINARY_DIR}/${name}.obj")
        list(APPEND imports "${CMAKE_CURRENT_BINARY_DIR}/lib${library}.a")
        list(APPEND commands COMMAND "${CMAKE_DLLTOOL}" -d "${library}.def" -l "lib${library}.a")
    endforeach()
    list(JOIN ARGN "," pairs)
    add_custom_command(OUTPUT ${imports} "${list}" VERBATIM DEPENDS ${objects} "${BRIVON_MICROSOFT_SCRIPT}"
        WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}" # names within the library are made of the path that is given
        COMMAND "${CMAKE_COMMAND}" "-DTOOL=${BRIVON_llvm-nm}" "-DIMPORTS_OF=${pairs}" "-DTO=${list}"
            -P "${BRIVON_MICROSOFT_SCRIPT}"
        ${commands})
    add_custom_target(microsoft-imports ALL DEPENDS ${imports} "${list}")
endfunction()

# brivon_microsoft_face(TARGET EXPORT_DEFINITION): on Windows, that library of the contracts' classes shows the Microsoft
# interface too.
function(brivon_microsoft_face target definition)
    string(REGEX MATCH "MESSAGE5|CONTROL" contract ${definition})
    set(MESSAGE5 BrivonMessage5)
    set(CONTROL BrivonControl)
    target_link_libraries(${target} PRIVATE microsoft-${${contract}})
endfunction()
