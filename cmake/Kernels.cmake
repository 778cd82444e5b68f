# add_kernels(TARGET LEVEL name LANES n [NEEDS extension ...] ROOMS room ...)
#
# Compiles each room's kernels.cpp once for an instruction-set level. LEVEL becomes the namespace that
# every function of the kernels lives in, so that the linker never keeps a function compiled for one level
# on behalf of another. NEEDS lists all extensions that the level is compiled with, by the name that both the
# compiler's -m option and __builtin_cpu_supports have for them; what one of them brings along counts too.
# Levels are added slowest first.
function(add_kernels target)
    cmake_parse_arguments(ARG "" "LEVEL;LANES" "NEEDS;ROOMS" ${ARGN})
    set(name ${target}_${ARG_LEVEL})
    list(TRANSFORM ARG_ROOMS APPEND /kernels.cpp OUTPUT_VARIABLE sources)
    list(TRANSFORM ARG_NEEDS PREPEND -m OUTPUT_VARIABLE flags)
    add_library(${name} OBJECT ${sources})
    target_link_libraries(${name} PRIVATE ${target}_headers)
    target_compile_definitions(${name} PRIVATE VELA_LEVEL=${ARG_LEVEL} VELA_LANES=${ARG_LANES})
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti ${flags} $<$<CONFIG:Coverage>:-O1>)
    target_sources(${target} INTERFACE $<TARGET_OBJECTS:${name}>)

    set(condition true)
    foreach(extension IN LISTS ARG_NEEDS)
        string(APPEND condition " && __builtin_cpu_supports(\"${extension}\")")
    endforeach()
    set_property(TARGET ${target} APPEND_STRING PROPERTY VELA_LEVELS " \\\n    X(${ARG_LEVEL}, ${condition})")
endfunction()

# Writes simd/level_list.hpp: every level of the target, and whether the processor runs it.
function(write_level_list target folder)
    get_target_property(levels ${target} VELA_LEVELS)
    file(CONFIGURE OUTPUT ${folder}/simd/level_list.hpp @ONLY CONTENT
        "// Written by write_level_list() of cmake/Kernels.cmake: X(name, true where the processor runs it).\n\
#pragma once\n\
#define VELA_LEVELS(X)@levels@\n")
endfunction()
