# Qt's headers take most of the time to compile a source, so they are compiled once for all targets. The tests have
# their own set with GoogleTest. No source depends on this: -DRKM_PCH=OFF builds, too.
option(RKM_PCH "Precompile the headers of Qt and GoogleTest" ON)

function(rkm_add_pch NAME)
    cmake_parse_arguments(PCH "" "" "HEADERS;LIBRARIES" ${ARGN})
    file(WRITE ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp.new "")
    configure_file(${CMAKE_BINARY_DIR}/pch/${NAME}.cpp.new ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp COPYONLY)
    add_library(${NAME} OBJECT ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp)
    target_link_libraries(${NAME} PRIVATE ${PCH_LIBRARIES})
    target_precompile_headers(${NAME} PRIVATE ${PCH_HEADERS})
    set_target_properties(${NAME} PROPERTIES AUTOMOC OFF)
endfunction()

# Makes every target below DIR use the precompiled headers: those with GoogleTest if it links GoogleTest.
function(rkm_use_pch DIR)
    get_property(TARGETS DIRECTORY ${DIR} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(CANDIDATE ${TARGETS})
        get_target_property(TYPE ${CANDIDATE} TYPE)
        get_target_property(LIBRARIES ${CANDIDATE} LINK_LIBRARIES)
        if(NOT TYPE MATCHES "EXECUTABLE|_LIBRARY" OR TYPE STREQUAL "INTERFACE_LIBRARY")
            continue()
        endif()
        if(LIBRARIES MATCHES "GTest::")
            target_precompile_headers(${CANDIDATE} REUSE_FROM rkm_test_pch)
        else()
            target_precompile_headers(${CANDIDATE} REUSE_FROM rkm_pch)
        endif()
    endforeach()
    get_property(SUBDIRS DIRECTORY ${DIR} PROPERTY SUBDIRECTORIES)
    foreach(SUBDIR ${SUBDIRS})
        rkm_use_pch(${SUBDIR})
    endforeach()
endfunction()

# Called when all targets are known.
function(rkm_precompile)
    if(NOT RKM_PCH)
        return()
    endif()
    rkm_add_pch(rkm_pch LIBRARIES Qt6::Core
        HEADERS <QtCore/QByteArray> <QtCore/QDateTime> <QtCore/QDir> <QtCore/QHash> <QtCore/QJsonArray>
            <QtCore/QJsonDocument> <QtCore/QJsonObject> <QtCore/QList> <QtCore/QMap> <QtCore/QObject>
            <QtCore/QString> <QtCore/QStringList> <QtCore/QTimer> <functional> <memory> <optional> <vector>)
    rkm_use_pch(${PROJECT_SOURCE_DIR}/src)
    if(RKM_TESTS)
        rkm_add_pch(rkm_test_pch LIBRARIES Qt6::Core GTest::gtest
            HEADERS <gtest/gtest.h> <QtCore/QByteArray> <QtCore/QCoreApplication> <QtCore/QDateTime> <QtCore/QDir>
                <QtCore/QFile> <QtCore/QJsonArray> <QtCore/QJsonDocument> <QtCore/QJsonObject> <QtCore/QList>
                <QtCore/QMap> <QtCore/QObject> <QtCore/QString> <QtCore/QStringList> <QtCore/QTemporaryDir>
                <functional> <memory> <optional> <vector>)
        rkm_use_pch(${PROJECT_SOURCE_DIR}/tests)
    endif()
endfunction()
