# Tiny Windows executables of nothing but the resources of a script. binutils alone makes them.
set(SAMPLES_DIR "${BRIVON_OUTPUT_DIR}/test/samples")
file(MAKE_DIRECTORY "${SAMPLES_DIR}")

function(brivon_sample script architecture)
    set(sample "${SAMPLES_DIR}/${script}.${architecture}.exe")
    set(source "${CMAKE_CURRENT_SOURCE_DIR}/resources/${script}.rc")
    set(tools "$<IF:$<STREQUAL:${architecture},x64>,x86_64,i686>-w64-mingw32")
    add_custom_command(OUTPUT "${sample}"
        COMMAND ${tools}-windres --preprocessor=cpp --codepage=65001 "${source}" "${sample}.o"
        COMMAND ${tools}-ld --entry=0 --no-insert-timestamp "${sample}.o" -o "${sample}"
        COMMAND ${CMAKE_COMMAND} -E rm "${sample}.o"
        DEPENDS "${source}"
        COMMAND_EXPAND_LISTS VERBATIM)
    set_property(GLOBAL APPEND PROPERTY BRIVON_SAMPLES "${sample}")
endfunction()

foreach(script plain languages no_version)
    brivon_sample(${script} x64)
endforeach()
brivon_sample(plain ia32)

get_property(samples GLOBAL PROPERTY BRIVON_SAMPLES)
add_custom_target(samples ALL DEPENDS ${samples})
