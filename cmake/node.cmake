# Node.js: its headers (node_api.h, uv.h) come with the Node installation, node-addon-api from npm. The functions behind
# them are the host executable's.
set(NODE_INCLUDE_DIR "" CACHE PATH "Folder of node_api.h and uv.h; ./run gives that of the installed Node.js")
set(NODE_MODULES_DIR "${CMAKE_SOURCE_DIR}/node_modules" CACHE PATH "Folder of node-addon-api and node-api-headers")

foreach(header "${NODE_INCLUDE_DIR}/node_api.h" "${NODE_INCLUDE_DIR}/uv.h" "${NODE_MODULES_DIR}/node-addon-api/napi.h")
    if(NOT EXISTS "${header}")
        message(FATAL_ERROR "${header} is missing: build with ./run, or run 'npm ci' and configure with -DNODE_INCLUDE_DIR=")
    endif()
endforeach()

# brivon_node(NAME HOST): what is needed to compile and link against the host executable of that name.
function(brivon_node name host)
    add_library(${name} INTERFACE)
    target_include_directories(${name} SYSTEM INTERFACE "${NODE_INCLUDE_DIR}" "${NODE_MODULES_DIR}/node-addon-api")
    target_compile_definitions(${name} INTERFACE NAPI_VERSION=5 NODE_ADDON_API_CPP_EXCEPTIONS
        # A worker that is terminated in the middle of a delivery refuses every exception; that must not end the process.
        NODE_API_SWALLOW_UNTHROWABLE_EXCEPTIONS)
    if(NOT WIN32)
        return()
    endif()

    # Windows wants to know where imports come from; those from the host are bound when they are first called.
    set(definition "${CMAKE_BINARY_DIR}/${name}.def")
    set(exports "")
    foreach(list "${NODE_MODULES_DIR}/node-api-headers/def/js_native_api.def"
            "${NODE_MODULES_DIR}/node-api-headers/def/node_api.def" "${CMAKE_SOURCE_DIR}/cmake/libuv.def")
        file(STRINGS "${list}" names REGEX "^[a-z_0-9]+$")
        list(APPEND exports ${names})
    endforeach()
    list(JOIN exports "\n" exports)
    file(CONFIGURE OUTPUT "${definition}" CONTENT "LIBRARY \"${host}\"\nEXPORTS\n${exports}\n")
    target_sources(${name} INTERFACE "${CMAKE_SOURCE_DIR}/platform/windows/failures.cpp"
        "${CMAKE_SOURCE_DIR}/platform/windows/host_import_hook.cpp")
    set(import "${CMAKE_BINARY_DIR}/lib${name}.a")
    add_custom_command(OUTPUT "${import}" DEPENDS "${definition}" VERBATIM
        WORKING_DIRECTORY "${CMAKE_BINARY_DIR}" # names within the library are made of the path that is given
        COMMAND "${CMAKE_DLLTOOL}" -d "${name}.def" -y "lib${name}.a" -D "${host}")
    target_link_libraries(${name} INTERFACE "${import}" delayimp)
    add_custom_target(${name}-import DEPENDS "${import}")
    add_dependencies(${name} ${name}-import)
endfunction()

brivon_node(node node.exe)
