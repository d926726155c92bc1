# The walls of the house, written down from what the targets really link: scripts/walls holds every include against them.

# vintakd_closure(<out> <target>): everything that <target> links and what that lets it include, itself first.
function(vintakd_closure out target)
    set(found ${target})
    get_target_property(queue ${target} LINK_LIBRARIES)
    while(queue)
        list(POP_FRONT queue next)
        if(NOT TARGET "${next}" OR next IN_LIST found)
            continue()
        endif()
        list(APPEND found ${next})
        # What a static library keeps to itself stands there as $<LINK_ONLY:...>, which is no target's name.
        get_target_property(more ${next} INTERFACE_LINK_LIBRARIES)
        if(more)
            list(APPEND queue ${more})
        endif()
    endwhile()
    set(${out} ${found} PARENT_SCOPE)
endfunction()

# Writes rooms.cmake into the build folder: each target of ours with its folder, its sources and its closure.
function(vintakd_write_rooms)
    get_property(rooms GLOBAL PROPERTY VINTAKD_ROOMS)
    set(text "set(ROOMS ${rooms})\n")
    foreach(room IN LISTS rooms)
        get_target_property(folder ${room} SOURCE_DIR)
        get_target_property(sources ${room} SOURCES)
        cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${PROJECT_SOURCE_DIR})
        vintakd_closure(links ${room})
        string(APPEND text "set(${room}_FOLDER ${folder})\nset(${room}_SOURCES ${sources})\nset(${room}_LINKS ${links})\n")
    endforeach()
    file(WRITE ${PROJECT_BINARY_DIR}/rooms.cmake "${text}")
endfunction()
