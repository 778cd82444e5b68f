# Flags of every target here and below; a project around this one is not affected. The output bytes are part
# of the interface, so nothing here may let the compiler reorder or fuse floating-point operations.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O3 -DNDEBUG")
# For the tests, and for what is done once in a run with libraries that take long to optimise.
set(VELA_QUICK_BUILD $<$<CONFIG:Release>:-O1>)
set(VELA_THOROUGH_BUILD $<$<CONFIG:Release>:-O3>) # a source of such a target that computes
# Branches of inlined library code would count as ours in optimised code.
set(CMAKE_CXX_FLAGS_COVERAGE "-O0 --coverage -fprofile-update=atomic")

add_compile_options(-ffp-contract=off -fno-math-errno -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wdate-time)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # As g++ understands -Wconversion in C++ and its own pragmas.
    add_compile_options(-Wno-sign-conversion -Wno-unknown-pragmas)
endif()
if(VELA_WERROR)
    add_compile_options(-Werror)
endif()

# Output files do not depend on where the source lies.
add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# Hosts read files and streams from outside. Measured on whole encodes: see docs/performance.md.
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
if(NOT VELA_SANITIZE)
    add_compile_options(-fstack-protector-strong -fstack-clash-protection)
    # Fortified calls exist in optimised code only.
    add_compile_options($<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
                        $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64")
        add_compile_options(-fcf-protection)
    endif()
endif()

if(VELA_SANITIZE)
    # The kernels carry no type information to check.
    add_compile_options(-fsanitize=${VELA_SANITIZE} -fno-sanitize=vptr -fno-sanitize-recover=all
                        -fno-omit-frame-pointer -g)
    add_link_options(-fsanitize=${VELA_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID MATCHES Clang)
        add_compile_options(-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/sanitize_ignore.txt)
    else()
        # The checks that sanitizers put in make g++ warn of overflows that cannot happen.
        add_compile_options(-Wno-error)
    endif()
endif()
