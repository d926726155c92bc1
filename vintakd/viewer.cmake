# The viewer process: an extraction engine that writes the viewer's files.
set(VINTAKD_VIEWER_SOURCES
    descriptor.cpp
    framegeometry.cpp
    frameinfo.cpp
    imagefiles.cpp
    includelist.cpp
    outputfile.cpp
    streamelements.cpp
    studyfiles.cpp
    thumbnailbudget.cpp
    thumbnails.cpp
    ultrasoundregions.cpp
    vintakhandlers.cpp
    vintakmemory.cpp
    vintakprocess.cpp
    vintakrawimage.cpp)
# Sources that are still to come are left out.
foreach(source ${VINTAKD_VIEWER_SOURCES})
    if(NOT EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${source})
        list(REMOVE_ITEM VINTAKD_VIEWER_SOURCES ${source})
    endif()
endforeach()
vintakd_room(vintakd_viewer
             SOURCES ${VINTAKD_VIEWER_SOURCES}
             LINKS imgproc codecs
             PRIVATE_LINKS kelt4 keltlegacy render hsutils)
