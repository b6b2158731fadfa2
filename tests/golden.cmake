# SPDX-License-Identifier: Apache-2.0
# The frames of the samples as the command prints them: as before, and as another program sees them.
file(GLOB samples CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/samples/*.flv)
foreach(sample ${samples})
    get_filename_component(name ${sample} NAME_WE)
    add_test(NAME golden.${name}
        COMMAND sh ${CMAKE_CURRENT_LIST_DIR}/update-golden --check ${zoflv_command} ${sample})
endforeach()
add_test(NAME interop
    COMMAND sh ${CMAKE_CURRENT_LIST_DIR}/interop.sh ${zoflv_command} ${samples})
add_test(NAME interop.extract
    COMMAND sh ${CMAKE_CURRENT_LIST_DIR}/extract_interop.sh ${zoflv_command}
        ${CMAKE_CURRENT_BINARY_DIR}/extract ${samples})
set_tests_properties(interop interop.extract PROPERTIES LABELS interop SKIP_RETURN_CODE 77)
