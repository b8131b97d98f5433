# Everything that differs by compiler stands here.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${BRIVON_OUTPUT_DIR}")
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_BUILD_WITH_INSTALL_RPATH ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN")

# Assertions are part of what the module promises, in every build.
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
    string(REGEX REPLACE "[-/]DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()

add_library(compile-options INTERFACE)
target_compile_options(compile-options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Woverloaded-virtual
    -Wnon-virtual-dtor -Wformat=2 -Werror
    # GCC 12 sees uninitialised members in every moved std::variant.
    $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>
    # __FILE__, which assertions and diagnostic lines show, is the path within the repository on every machine.
    "-ffile-prefix-map=${CMAKE_SOURCE_DIR}/="
    # Unique symbols would keep a module half-loaded after the last environment that used it has ended.
    $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
if(BRIVON_SANITIZE)
    # vptr checks need type information that the runtime's objects do not carry.
    target_compile_options(compile-options INTERFACE -fsanitize=${BRIVON_SANITIZE} -fno-sanitize=vptr
        -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(compile-options INTERFACE -fsanitize=${BRIVON_SANITIZE})
endif()

# Nothing but the symbols that the map names is exported, templates of the standard library included.
function(brivon_exports target map)
    target_link_options(${target} PRIVATE "-Wl,--version-script=${map}")
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS "${map}")
endfunction()
