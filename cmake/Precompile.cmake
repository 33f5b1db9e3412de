# Qt's headers take most of the time to compile a source, so they are compiled once for all targets. The tests have
# their own set with GoogleTest, and their own compiler options. No source depends on this: -DRKM_PCH=OFF builds, too.
option(RKM_PCH "Precompile the headers of Qt and GoogleTest" ON)

function(rkm_add_pch NAME)
    cmake_parse_arguments(PCH "" "" "HEADERS;LIBRARIES;OPTIONS" ${ARGN})
    file(WRITE ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp.new "")
    configure_file(${CMAKE_BINARY_DIR}/pch/${NAME}.cpp.new ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp COPYONLY)
    add_library(${NAME} OBJECT ${CMAKE_BINARY_DIR}/pch/${NAME}.cpp)
    target_link_libraries(${NAME} PRIVATE ${PCH_LIBRARIES})
    target_precompile_headers(${NAME} PRIVATE ${PCH_HEADERS})
    target_compile_options(${NAME} PRIVATE ${PCH_OPTIONS})
    set_target_properties(${NAME} PROPERTIES AUTOMOC OFF)
endfunction()

# Makes every target below DIR that links one of the libraries USERS (a regular expression) use the headers of PCH.
function(rkm_use_pch DIR PCH USERS)
    get_property(TARGETS DIRECTORY ${DIR} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(CANDIDATE ${TARGETS})
        get_target_property(TYPE ${CANDIDATE} TYPE)
        get_target_property(LIBRARIES ${CANDIDATE} LINK_LIBRARIES)
        if(TYPE MATCHES "EXECUTABLE|_LIBRARY" AND NOT TYPE STREQUAL "INTERFACE_LIBRARY" AND LIBRARIES MATCHES "${USERS}")
            target_precompile_headers(${CANDIDATE} REUSE_FROM ${PCH})
        endif()
    endforeach()
    get_property(SUBDIRS DIRECTORY ${DIR} PROPERTY SUBDIRECTORIES)
    foreach(SUBDIR ${SUBDIRS})
        rkm_use_pch(${SUBDIR} ${PCH} ${USERS})
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
    rkm_use_pch(${PROJECT_SOURCE_DIR}/src rkm_pch ".")
    if(RKM_TESTS)
        rkm_add_pch(rkm_test_pch LIBRARIES Qt6::Core GTest::gtest OPTIONS ${RKM_TEST_OPTIONS}
            HEADERS <gtest/gtest.h> <QtCore/QByteArray> <QtCore/QCoreApplication> <QtCore/QDateTime> <QtCore/QDir>
                <QtCore/QFile> <QtCore/QJsonArray> <QtCore/QJsonDocument> <QtCore/QJsonObject> <QtCore/QList>
                <QtCore/QMap> <QtCore/QObject> <QtCore/QString> <QtCore/QStringList> <QtCore/QTemporaryDir>
                <functional> <memory> <optional> <vector>)
        rkm_use_pch(${PROJECT_SOURCE_DIR}/tests rkm_test_pch "GTest::|test_main|_test_support")
    endif()
endfunction()
