# cmake -DROOMS_FILE=BUILD/rooms.cmake -P cmake/CheckWalls.cmake: fails on an include that a room's target does not
# link, header-only code included, and on a link that no room of its kind may have.
cmake_minimum_required(VERSION 3.25)
get_filename_component(root ${CMAKE_CURRENT_LIST_DIR} DIRECTORY)
include(${ROOMS_FILE})

# Whose headers these are, the longest beginning first.
set(foreign
    "dcmtk/config=DCMTK::ofstd" "dcmtk/ofstd=DCMTK::ofstd" "dcmtk/oflog=DCMTK::oflog" "dcmtk/dcmdata=DCMTK::dcmdata"
    "dcmtk/dcmjpeg=DCMTK::dcmjpeg" "dcmtk/dcmjpls=DCMTK::dcmjpls" "dcmtk/dcmimage=DCMTK::dcmimage"
    "dcmtk/dcmimgle=DCMTK::dcmimgle" "boost/program_options=Boost::program_options" "boost/=Boost::headers"
    "openjpeg.h=PkgConfig::OPENJP2" "png.h=PNG::PNG" "zlib.h=ZLIB::ZLIB" "seccomp.h=PkgConfig::SECCOMP"
    "amqp.h=PkgConfig::RABBITMQ" "amqp_=PkgConfig::RABBITMQ" "sqlite3.h=PkgConfig::SQLITE3")

# Links that would make a hole, whatever includes them.
set(never
    # The supervisor never parses: nothing that runs in the daemon's first process touches an object's bytes.
    "vintakd_pool=DCMTK::dcmdata" "vintakd_pool=imgproc" "vintakd_pool=codecs" "vintakd_pool=privateblock"
    # A client gets the calls and nothing else.
    "vintakd_client_static=DCMTK::dcmdata" "vintakd_client_static=vintakd_pool"
    # The viewer knows neither the shared memory nor who asked for its files.
    "vintakd_viewer=vintakd_ipc" "vintakd_viewer=vintakd_pool"
    # The coders know nothing of DICOM.
    "kelt4=DCMTK::dcmdata" "keltlegacy=DCMTK::dcmdata" "render=DCMTK::dcmdata")

set(findings)
foreach(hole IN LISTS never)
    string(REGEX MATCH "^(.*)=(.*)$" matched ${hole})
    if(CMAKE_MATCH_2 IN_LIST ${CMAKE_MATCH_1}_LINKS)
        list(APPEND findings "${CMAKE_MATCH_1} links ${CMAKE_MATCH_2}, which it never may")
    endif()
endforeach()

# The room that a file belongs to: the target that names it, or compiles its .cpp, else the only library of its folder.
function(room_of out file)
    cmake_path(GET file PARENT_PATH folder)
    cmake_path(GET file STEM stem)
    cmake_path(GET file FILENAME name)
    foreach(room IN LISTS ROOMS)
        if(name IN_LIST ${room}_SOURCES AND folder STREQUAL ${room}_FOLDER)
            set(${out} ${room} PARENT_SCOPE)
            return()
        endif()
    endforeach()
    set(candidates)
    foreach(room IN LISTS ROOMS)
        set(below ${folder})
        cmake_path(IS_PREFIX ${room}_FOLDER ${below} inside)
        if(inside AND "${stem}.cpp" IN_LIST ${room}_SOURCES AND below STREQUAL ${room}_FOLDER)
            set(${out} ${room} PARENT_SCOPE)
            return()
        endif()
        if(inside)
            string(LENGTH "${${room}_FOLDER}" length)
            list(APPEND candidates "${length}=${room}")
        endif()
    endforeach()
    list(SORT candidates COMPARE NATURAL ORDER DESCENDING)
    if(candidates)
        list(GET candidates 0 best)
        string(REGEX REPLACE "^[0-9]+=" "" best "${best}")
        set(${out} ${best} PARENT_SCOPE)
    else()
        set(${out} "" PARENT_SCOPE)
    endif()
endfunction()

# The target that an include asks for; empty for the compiler's own headers.
function(target_of out include)
    foreach(rule IN LISTS foreign)
        string(REGEX MATCH "^(.*)=(.*)$" matched ${rule})
        string(FIND "${include}" "${CMAKE_MATCH_1}" at)
        if(at EQUAL 0)
            set(${out} ${CMAKE_MATCH_2} PARENT_SCOPE)
            return()
        endif()
    endforeach()
    set(found "")
    if(EXISTS ${root}/${include})
        room_of(found ${include})
    endif()
    set(${out} "${found}" PARENT_SCOPE)
endfunction()

set(count 0)
foreach(room IN LISTS ROOMS)
    file(GLOB_RECURSE files RELATIVE ${root} ${root}/${${room}_FOLDER}/*.h ${root}/${${room}_FOLDER}/*.cpp)
    foreach(file IN LISTS files)
        room_of(owner ${file})
        if(NOT owner STREQUAL room)
            continue()
        endif()
        file(STRINGS ${root}/${file} lines REGEX "^#include [<\"]")
        foreach(line IN LISTS lines)
            string(REGEX REPLACE "^#include [<\"]([^>\"]*).*" "\\1" include "${line}")
            target_of(target ${include})
            math(EXPR count "${count} + 1")
            if(target AND NOT target IN_LIST ${room}_LINKS)
                list(APPEND findings "${file}: ${include} belongs to ${target}, which ${room} does not link")
            endif()
        endforeach()
    endforeach()
endforeach()

if(findings)
    list(JOIN findings "\n  " text)
    message(FATAL_ERROR "Includes through a wall:\n  ${text}")
endif()
message(STATUS "walls: ${count} includes, all of what their rooms link")
