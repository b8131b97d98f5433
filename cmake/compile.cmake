# What differs by compiler, for those that build for the system's own interface.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
# Modules and shared libraries lie together; Windows counts the latter among programs.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${BRIVON_OUTPUT_DIR}")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${BRIVON_OUTPUT_DIR}")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN")

# Assertions are part of what the module promises, in every build.
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
    string(REGEX REPLACE "[-/]DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()

set(BRIVON_WARNINGS -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast
    -Woverloaded-virtual -Wnon-virtual-dtor -Wformat=2 -Werror)
add_library(compile-options INTERFACE)
target_compile_options(compile-options INTERFACE ${BRIVON_WARNINGS}
    # GCC 12 sees uninitialised members in every moved std::variant.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    # __FILE__, which assertions and diagnostic lines show, is the path within the repository on every machine.
    "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=")
# As distributions harden what they build. Fortified functions need an optimiser, and get in a sanitizer's way.
target_compile_options(compile-options INTERFACE -fstack-protector-strong -D_GLIBCXX_ASSERTIONS)
if(NOT WIN32)
    target_compile_options(compile-options INTERFACE -fstack-clash-protection
        $<IF:$<STREQUAL:${CMAKE_SYSTEM_PROCESSOR},aarch64>,-mbranch-protection=standard,-fcf-protection>
        $<$<CONFIG:Release>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>)
    # Everything is bound when a file is loaded, so that one that lacks a name is refused then, as on Windows.
    target_link_options(compile-options INTERFACE -Wl,-z,relro,-z,now)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT WIN32)
    # Unique symbols would keep a module half-loaded after the last environment that used it has ended.
    target_compile_options(compile-options INTERFACE -fno-gnu-unique)
endif()
if(MINGW)
    target_link_options(compile-options INTERFACE
        # No library of the compiler's has to travel along.
        -static
        # The same sources give the same bytes, whenever and in whatever folder they are built.
        -Wl,--no-insert-timestamp -Wl,--disable-auto-image-base)
    add_library(stack-guard STATIC "${CMAKE_SOURCE_DIR}/platform/windows/stack_guard.cpp")
    target_compile_options(stack-guard PRIVATE ${BRIVON_WARNINGS})
    target_link_libraries(compile-options INTERFACE stack-guard)
    target_compile_options(compile-options INTERFACE
        # printf and its kin as the standard has them.
        -D__USE_MINGW_ANSI_STDIO=1
        # A function's address as the system hands it out has no type of its own.
        -Wno-cast-function-type)
endif()
if(BRIVON_SANITIZE)
    # vptr checks need type information that the runtime's objects do not carry.
    target_compile_options(compile-options INTERFACE -fsanitize=${BRIVON_SANITIZE} -fno-sanitize=vptr
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(compile-options INTERFACE -fsanitize=${BRIVON_SANITIZE})
endif()

# brivon_addon(NAME): a module that Node.js loads, NAME.node.
function(brivon_addon name)
    add_library(${name} MODULE ${ARGN})
    set_target_properties(${name} PROPERTIES PREFIX "" SUFFIX ".node")
    target_link_libraries(${name} PRIVATE compile-options)
endfunction()

# Nothing but the symbols that the map names is exported, templates of the standard library included. Windows exports
# what the sources say and nothing else.
function(brivon_exports target map)
    if(NOT WIN32)
        target_link_options(${target} PRIVATE "-Wl,--version-script=${map}")
        set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${map}")
    endif()
endfunction()

# brivon_copies(NAME FOLDER TARGETS...): those targets' files again, in another folder.
function(brivon_copies name folder)
    set(stamp "${CMAKE_CURRENT_BINARY_DIR}/${name}.stamp")
    set(files "")
    foreach(target ${ARGN})
        list(APPEND files "$<TARGET_FILE:${target}>")
    endforeach()
    add_custom_command(OUTPUT "${stamp}" DEPENDS ${ARGN} VERBATIM
        COMMAND "${CMAKE_COMMAND}" -E make_directory "${folder}"
        COMMAND "${CMAKE_COMMAND}" -E copy ${files} "${folder}"
        COMMAND "${CMAKE_COMMAND}" -E touch "${stamp}")
    add_custom_target(${name} ALL DEPENDS "${stamp}")
endfunction()
