# What a client of the daemon installs: the call library (shared and static), its headers, a CMake package and a .pc file.
include(CMakePackageConfigHelpers)

set(VINTAKD_CLIENT_HEADERS
    BareChannel.h
    Channel.h
    Gateway.h
    GatewayBase.h
    Message.h
    barrier.h
    ipcexceptions.h
    lockowner.h
    patience.h
    spinlock.h
    timeout.h)
set(VINTAKD_CLIENT_INCLUDE ${CMAKE_INSTALL_INCLUDEDIR}/vintakd-client)

if(TARGET vintakd_client)
    target_include_directories(vintakd_client PUBLIC $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>)
    target_link_libraries(vintakd_client PUBLIC Boost::headers PRIVATE $<LINK_LIBRARY:WHOLE_ARCHIVE,vintakd_ipc>)
    vintakd_compile_options(vintakd_client)
    # What is exported under which version; a symbol that is taken away needs another SOVERSION.
    target_link_options(vintakd_client PRIVATE LINKER:--version-script=${CMAKE_CURRENT_SOURCE_DIR}/client.map)
    set_target_properties(vintakd_client PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                          LINK_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/client.map)
    set(VINTAKD_SHARED vintakd_client)
endif()

set_target_properties(vintakd_client_static PROPERTIES OUTPUT_NAME vintakd_client)
set_target_properties(hsutils PROPERTIES OUTPUT_NAME vintakd_hsutils)

install(TARGETS ${VINTAKD_SHARED} vintakd_client_static vintakd_ipc hsutils EXPORT vintakd_client
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT client
        INCLUDES DESTINATION ${VINTAKD_CLIENT_INCLUDE})
install(FILES vintakd.h vintakd_if.h DESTINATION ${VINTAKD_CLIENT_INCLUDE}/vintakd COMPONENT client)
list(TRANSFORM VINTAKD_CLIENT_HEADERS PREPEND ipc/)
install(FILES ${VINTAKD_CLIENT_HEADERS} DESTINATION ${VINTAKD_CLIENT_INCLUDE}/vintakd/ipc COMPONENT client)
install(FILES ../hsutils/ClassedError.h ../hsutils/ConversionPart.h ../hsutils/VintakdErrorException.h
        ../hsutils/errorclass.h DESTINATION ${VINTAKD_CLIENT_INCLUDE}/hsutils COMPONENT client)

set(VINTAKD_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/vintakd_client)
install(EXPORT vintakd_client NAMESPACE vintakd:: DESTINATION ${VINTAKD_PACKAGE_DIR} COMPONENT client)
configure_package_config_file(${PROJECT_SOURCE_DIR}/packaging/vintakd_clientConfig.cmake.in
                              ${CMAKE_CURRENT_BINARY_DIR}/vintakd_clientConfig.cmake
                              INSTALL_DESTINATION ${VINTAKD_PACKAGE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/vintakd_clientConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vintakd_clientConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/vintakd_clientConfigVersion.cmake
        DESTINATION ${VINTAKD_PACKAGE_DIR} COMPONENT client)

# Found from where the file lies, so that the installation can be moved.
file(RELATIVE_PATH VINTAKD_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/packaging/vintakd_client.pc.in ${CMAKE_CURRENT_BINARY_DIR}/vintakd_client.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/vintakd_client.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT client)
