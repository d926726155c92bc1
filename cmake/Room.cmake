# vintakd_room(<target> SOURCES <file>... [LINKS <target>...] [PRIVATE_LINKS <target>...])
# One room of the house: a static library whose includes are written from the project's root.
function(vintakd_compile_options target)
    # GCC 12 sees overlapping copies in the concatenation of a literal and a string where there are none.
    target_compile_options(${target} PRIVATE -Wall -Wextra $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
    if(VINTAKD_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${VINTAKD_SANITIZE} -fno-omit-frame-pointer)
        target_link_options(${target} PUBLIC -fsanitize=${VINTAKD_SANITIZE})
    endif()
endfunction()

function(vintakd_room target)
    cmake_parse_arguments(ROOM "" "" "SOURCES;LINKS;PRIVATE_LINKS" ${ARGN})
    add_library(${target} STATIC ${ROOM_SOURCES})
    target_include_directories(${target} PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    target_link_libraries(${target} PUBLIC ${ROOM_LINKS} PRIVATE ${ROOM_PRIVATE_LINKS})
    vintakd_compile_options(${target})
    set_property(GLOBAL APPEND PROPERTY VINTAKD_ROOMS ${target})
endfunction()

# vintakd_program(<target> SOURCES <file>... LINKS <target>...)
# A program of the house: it stands on the rooms that it links, behind the same walls.
function(vintakd_program target)
    cmake_parse_arguments(PROGRAM "" "" "SOURCES;LINKS" ${ARGN})
    add_executable(${target} ${PROGRAM_SOURCES})
    target_link_libraries(${target} PRIVATE ${PROGRAM_LINKS})
    vintakd_compile_options(${target})
    set_property(GLOBAL APPEND PROPERTY VINTAKD_ROOMS ${target})
endfunction()
