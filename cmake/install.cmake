# What `cmake --install` puts down: the library, the headers that a user of it may include, and what
# leads CMake and pkg-config to both. Nothing in it names a directory, so that the tree may be moved.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# The public headers: those of the exported names, and those that they include.
set(QZ_PUBLIC_HEADERS
    capi/QZInt-c.h
    config/ConfigEntry.h config/InterceptorConfig.h
    helpers/Helpers.h
    interaction/Checkpoints.h interaction/ClientInteraction.h interaction/FlowStub.h
    interaction/IIntCorrelator.h interaction/IMsgFieldEvaluator.h interaction/IntCorrMap.h
    interaction/IntCorrTlsStack.h interaction/IntCorrelator.h interaction/IntCorrelatorImp.h
    interaction/Interaction.h interaction/InteractionStub.h interaction/ServerInteraction.h
    interaction/SiteStub.h
    io/BufferedInputStream.h io/BufferedOutputStream.h io/ByteArrayInputStream.h
    io/ByteInputStream.h io/ByteOutputStream.h io/ChunkedByteArrayOutputStream.h
    io/DataInputStream.h io/DataOutputStream.h io/InputStream.h io/OutputStream.h
    io/SocketInputStream.h io/SocketOutputStream.h io/TestInputStream.h io/TestOutputStream.h
    io/TestStreams.h
    uplink/AgentEvent.h uplink/AsyncBinaryUplink.h uplink/PooledUplink.h uplink/SocketUplink.h uplink/Uplink.h
    uplink/UplinkData.h uplink/UplinkParameters.h
    util/ByteArray.h util/ByteStreamReader.h util/Clock.h util/FileStreamReader.h util/IIterator.h
    util/IList.h util/List.h util/Map.h util/Pair.h util/Runnable.h util/Socket.h util/Stack.h
    util/StreamReader.h util/String.h util/Vector.h util/annotations.h util/base64.h util/blocks.h
    util/dispose.h util/exceptions.h util/export.h util/guid.h util/identifiers.h util/md5.h
    util/properties.h util/qzevent.h util/qzmutex.h util/qzsemaphore.h util/qzthread.h
    util/threadkey.h util/uri.h
    xml/XMLDocument.h xml/XMLReadStream.h xml/XMLTag.h)
list(TRANSFORM QZ_PUBLIC_HEADERS PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/src/)

set(QZ_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/qzint)
set(QZ_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/QZInt)
set(QZ_PCDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# Headers include each other as "util/String.h", so their own directory is on the path; the one above
# it is there for those who write <qzint/capi/QZInt-c.h>. Both are named, since a CMake before 3.23
# does not know file sets.
target_sources(qzint PUBLIC FILE_SET HEADERS BASE_DIRS src FILES ${QZ_PUBLIC_HEADERS})
target_include_directories(qzint INTERFACE $<INSTALL_INTERFACE:${QZ_INCLUDEDIR}>
                                           $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
add_library(QZInt::qzint ALIAS qzint)

install(TARGETS qzint EXPORT QZIntTargets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${QZ_INCLUDEDIR} COMPONENT development)
install(EXPORT QZIntTargets NAMESPACE QZInt:: DESTINATION ${QZ_CMAKEDIR} COMPONENT development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/QZIntConfig.cmake.in QZIntConfig.cmake
                              INSTALL_DESTINATION ${QZ_CMAKEDIR}
                              NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(QZIntConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QZIntConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/QZIntConfigVersion.cmake
        DESTINATION ${QZ_CMAKEDIR} COMPONENT development)

# The way from qzint.pc up to the prefix.
file(RELATIVE_PATH QZ_PC_TO_PREFIX /${QZ_PCDIR} /)
configure_file(${CMAKE_CURRENT_LIST_DIR}/qzint.pc.in qzint.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qzint.pc DESTINATION ${QZ_PCDIR} COMPONENT development)
