# SPDX-License-Identifier: Apache-2.0
# Flags for every target of the project. They are the directory's, not a target's, so that a sanitizer
# or coverage build instruments everything that is linked together.

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(ZOFLV_WERROR)
    add_compile_options(-Werror)
endif()

# The x87 unit of 32-bit x86 computes doubles with more bits than their type has: times and frame counts
# would differ from those of every other machine.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^i.86$")
    add_compile_options(-msse2 -mfpmath=sse)
endif()

if(ZOFLV_SANITIZE)
    # A report ends the program: a finding must fail the test that met it.
    add_compile_options(-fsanitize=${ZOFLV_SANITIZE} -fno-sanitize-recover=all
                        -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${ZOFLV_SANITIZE})
endif()

if(ZOFLV_COVERAGE)
    add_compile_options(--coverage -fprofile-abs-path -fprofile-update=atomic)
    add_link_options(--coverage)
endif()

if(ZOFLV_FUZZ)
    # Everything tells the fuzzer where it went, the shared libraries too.
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(ZOFLV_STATIC_RUNTIME)
    # Loading and relocating the C++ library takes as long as all that a short command does. No library
    # hands its copy's symbols on.
    add_link_options(-static-libstdc++ -static-libgcc LINKER:--exclude-libs,ALL)
endif()

if(ZOFLV_LTO)
    include(CheckIPOSupported)
    check_ipo_supported(RESULT CMAKE_INTERPROCEDURAL_OPTIMIZATION OUTPUT lto_failure LANGUAGES CXX)
    if(NOT CMAKE_INTERPROCEDURAL_OPTIMIZATION)
        message(STATUS "Without optimisation across sources: ${lto_failure}")
    endif()
endif()
