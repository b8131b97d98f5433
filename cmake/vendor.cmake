# The suite's own libraries, by the import libraries that its development kit holds.
foreach(name BrivonMessage5 BrivonControl)
    if(NOT EXISTS "${BRIVON_VENDOR_DIR}/${name}.lib")
        message(FATAL_ERROR "${BRIVON_VENDOR_DIR}/${name}.lib is missing")
    endif()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE "${CMAKE_SOURCE_DIR}/interfaces")
    target_link_libraries(${name} INTERFACE "${BRIVON_VENDOR_DIR}/${name}.lib")
endforeach()
