# Everything that is not ours: what it is and the target it is used under.
find_package(Threads REQUIRED)
find_package(Boost 1.74 REQUIRED COMPONENTS program_options)
find_package(PkgConfig REQUIRED)
find_package(PNG REQUIRED)
find_package(ZLIB REQUIRED)

find_package(DCMTK 3.6.7 REQUIRED)

pkg_check_modules(OPENJP2 REQUIRED IMPORTED_TARGET libopenjp2)
pkg_check_modules(SECCOMP REQUIRED IMPORTED_TARGET libseccomp)

# For `vintak backfill` alone, which is left out where the library is missing.
if(VINTAKD_BACKFILL)
    pkg_check_modules(SQLITE3 IMPORTED_TARGET sqlite3)
endif()
if(NOT TARGET PkgConfig::SQLITE3)
    message(STATUS "built without SQLite (libsqlite3-dev): no vintak backfill")
endif()
# For `vintak view` alone, which is left out where the library is missing.
pkg_check_modules(HTTPLIB IMPORTED_TARGET cpp-httplib)

# For `vintak work`, `vintak submit` and `vintak spool --submit`, which are left out where it is missing.
if(VINTAKD_BROKER)
    pkg_check_modules(RABBITMQ IMPORTED_TARGET librabbitmq)
endif()
if(NOT TARGET PkgConfig::RABBITMQ)
    message(STATUS "built without RabbitMQ (librabbitmq-dev): no vintak work, no vintak submit")
endif()
