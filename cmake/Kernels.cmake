# add_kernels(TARGET LEVEL name LANES n [FLAGS ...] ROOMS ...)
#
# Compiles each room's kernels.cpp once for an instruction-set level. LEVEL becomes the namespace that
# every function of the kernels lives in, so that the linker never keeps a function compiled for one level
# on behalf of another.
function(add_kernels target)
    cmake_parse_arguments(ARG "" "LEVEL;LANES" "FLAGS;ROOMS" ${ARGN})
    set(name ${target}_${ARG_LEVEL})
    set(sources ${ARG_ROOMS})
    list(TRANSFORM sources APPEND /kernels.cpp)
    add_library(${name} OBJECT ${sources})
    target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/src ${CMAKE_SOURCE_DIR}/include)
    target_compile_definitions(${name} PRIVATE VELA_LEVEL=${ARG_LEVEL} VELA_LANES=${ARG_LANES})
    target_compile_options(${name} PRIVATE -fno-exceptions -fno-rtti ${ARG_FLAGS})
    target_sources(${target} INTERFACE $<TARGET_OBJECTS:${name}>)
endfunction()
