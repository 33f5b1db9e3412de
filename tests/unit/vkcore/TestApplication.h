#pragma once

#include <vkcore/OkiApplication.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QTemporaryDir>

// An application that keeps its log in a folder of its own.
class TestApplication : public tarn::vkcore::OkiApplication
{
public:
    TestApplication() : OkiApplication({QStringLiteral("vk"), QStringLiteral("vkp")}, 2)
    {
        getConfig()->setValue(QStringLiteral("application.logDir"), path(QStringLiteral("log")),
                              tarn::vkcore::Config::UserValue);
        getConfig()->setValue(QStringLiteral("service.stateDir"), path(QStringLiteral("state")),
                              tarn::vkcore::Config::UserValue);
        QDir().mkpath(path(QStringLiteral("state")));
    }

    void fatalError(const QString& pText) override { mFatalErrors.append(pText); }
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
        QFile tFile(path(QStringLiteral("log/")) + getAppName() + QStringLiteral(".log"));
        return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
    }

    QList<QString> mFatalErrors;
    int mFinalizeCount = 0;

private:
    QTemporaryDir mDir;
};

inline bool writeFile(const QString& pPath, const QByteArray& pBytes)
{
    QFile tFile(pPath);
    return tFile.open(QIODevice::WriteOnly) && tFile.write(pBytes) == pBytes.size();
}
