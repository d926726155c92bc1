# The viewer process: an extraction engine that writes the viewer's files.
vintakd_room(vintakd_viewer
             SOURCES
             conversionfiles.cpp
             descriptor.cpp
             framegeometry.cpp
             frameinfo.cpp
             imagefiles.cpp
             includelist.cpp
             outputfile.cpp
             outputquota.cpp
             streamelements.cpp
             studyfiles.cpp
             thumbnailbudget.cpp
             thumbnails.cpp
             ultrasoundregions.cpp
             vintakhandlers.cpp
             vintakmemory.cpp
             vintakprocess.cpp
             vintakrawimage.cpp
             LINKS imgproc codecs
             PRIVATE_LINKS kelt4 keltlegacy render hsutils)
