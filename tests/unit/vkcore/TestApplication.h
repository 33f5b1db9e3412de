#pragma once

#include "Files.h"
#include "Text.h"

#include <vkcore/OkiApplication.h>

#include <QtCore/QTemporaryDir>

// An application with its log in a private folder.
class TestApplication : public tarn::vkcore::OkiApplication
{
public:
    TestApplication() : OkiApplication({q("vk"), q("vkp")}, 2)
    {
        getConfig()->setValue(q("application.logDir"), path(q("log")), tarn::vkcore::Config::UserValue);
        getConfig()->setValue(q("service.stateDir"), path(q("state")), tarn::vkcore::Config::UserValue);
        QDir().mkpath(path(q("state")));
    }

    void fatalError(const QString&) override {}
    bool saveUserConfig() override { return true; }
    void finalize() override
    {
        ++mFinalizeCount;
        OkiApplication::finalize();
    }

    QString path(const QString& pName) const { return mDir.filePath(pName); }
    QByteArray logText()
    {
        initUserDirs();
        initLogFile();
        return readFile(path(q("log/")) + getAppName() + q(".log"));
    }

    int mFinalizeCount = 0;

private:
    QTemporaryDir mDir;
};
