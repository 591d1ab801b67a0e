# Shared compile settings, linked PRIVATE by every target of the project.
add_library(vantorel_options INTERFACE)
target_compile_options(vantorel_options INTERFACE -Wall -Wextra -Wpedantic)
if(VANTOREL_WERROR)
    target_compile_options(vantorel_options INTERFACE -Werror)
endif()
if(VANTOREL_SANITIZE)
    target_compile_options(vantorel_options INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    target_link_options(vantorel_options INTERFACE -fsanitize=address,undefined)
endif()
if(VANTOREL_CLANG_TIDY)
    find_program(CLANG_TIDY_EXE NAMES clang-tidy-14 clang-tidy REQUIRED)
    set(CMAKE_CXX_CLANG_TIDY "${CLANG_TIDY_EXE}")
endif()

# vantorel_add_test(<name> SOURCES ... LIBS ...): one test executable per module, run by CTest.
function(vantorel_add_test name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} vantorel_test_support GTest::gmock GTest::gtest_main
                                          vantorel_options)
    gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST
                         PROPERTIES ENVIRONMENT "VANTOREL_SOURCE_DIR=${PROJECT_SOURCE_DIR}")
endfunction()

# A part left out because a dependency is missing: a warning when building by hand, a failure
# where the whole product must be built (CI's presets set VANTOREL_COMPLETE).
function(vantorel_left_out)
    string(JOIN "" what ${ARGV})
    if(VANTOREL_COMPLETE)
        message(FATAL_ERROR "${what} (VANTOREL_COMPLETE is on)")
    else()
        message(WARNING "${what}")
    endif()
endfunction()
