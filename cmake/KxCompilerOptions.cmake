# Options that hold for every target: language, warnings, hardening, sanitizers.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# CMake's own -O3 makes the program a fifth larger, nearly all of which stays in memory, and gains something only where each
# byte of a log or each request goes through: those sources are compiled with KX_HOT.
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")
set(KX_HOT "$<$<CONFIG:Release>:-O3>")

set(KX_SANITIZE "" CACHE STRING "Sanitizers to build with, comma-separated: address,undefined or thread")
option(KX_WARNINGS_AS_ERRORS "Treat warnings as errors" ON)

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wformat=2 -Wvla)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    add_compile_options(-Wno-restrict) # optimised string concatenation sets it off: https://gcc.gnu.org/PR105651
endif()
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-subobject-linkage) # it takes the sources that a unity file includes for headers
endif()
if(KX_WARNINGS_AS_ERRORS)
    add_compile_options(-Werror)
endif()

# https://wiki.debian.org/Hardening, and what g++ 12 offers beyond it.
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection -fno-plt)
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -Wl,--as-needed)
include(CheckPIESupported)
check_pie_supported()
if(NOT KX_SANITIZE AND CMAKE_BUILD_TYPE MATCHES "Rel")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -ffunction-sections -fdata-sections)
    add_link_options(-Wl,--gc-sections)
    add_link_options(-Wl,-z,pack-relative-relocs)  # the loader reads a bitmap of 3 KiB instead of a table of 70
    add_compile_options(-ffile-prefix-map=${CMAKE_SOURCE_DIR}/=)  # what is shipped does not depend on where it is built
endif()

if(CMAKE_BUILD_TYPE STREQUAL "Debug")
    add_compile_definitions(_GLIBCXX_ASSERTIONS)  # indices and empty optionals
endif()

if(KX_SANITIZE)
    add_compile_options(-fsanitize=${KX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
    add_link_options(-fsanitize=${KX_SANITIZE})
    if(KX_SANITIZE MATCHES thread)
        add_compile_options(-Wno-tsan)  # the fences of Asio, whose locks order the same things
    endif()
endif()

# Coverage for libFuzzer in everything that a fuzzer links.
if(KX_BUILD_FUZZERS)
    add_compile_options(-fno-sanitize=function) # clang 14 cannot assemble coroutines with what this check adds to them
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
