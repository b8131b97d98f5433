# Headers of Node.js (node_api.h, uv.h) come with the Node installation, node-addon-api from npm.
find_program(NODE_EXECUTABLE node REQUIRED)
execute_process(
    COMMAND "${NODE_EXECUTABLE}" -p "require('path').resolve(process.execPath, '../../include/node')"
    OUTPUT_VARIABLE node_include OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
set(NODE_INCLUDE_DIR "${node_include}" CACHE PATH "Folder of node_api.h and uv.h")
set(NODE_ADDON_API_DIR "${CMAKE_SOURCE_DIR}/node_modules/node-addon-api" CACHE PATH "Folder of napi.h")

foreach(header "${NODE_INCLUDE_DIR}/node_api.h" "${NODE_INCLUDE_DIR}/uv.h" "${NODE_ADDON_API_DIR}/napi.h")
    if(NOT EXISTS "${header}")
        message(FATAL_ERROR "${header} is missing: set NODE_INCLUDE_DIR to the headers of Node.js, and run 'npm ci'")
    endif()
endforeach()

# Node.js itself brings the functions behind these headers.
add_library(node-headers INTERFACE)
target_include_directories(node-headers SYSTEM INTERFACE "${NODE_INCLUDE_DIR}" "${NODE_ADDON_API_DIR}")
target_compile_definitions(node-headers INTERFACE NAPI_VERSION=5 NODE_ADDON_API_CPP_EXCEPTIONS
    # A worker that is terminated in the middle of a delivery refuses every exception; that must not end the process.
    NODE_API_SWALLOW_UNTHROWABLE_EXCEPTIONS)
