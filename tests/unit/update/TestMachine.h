#pragma once

#include "FaultyFileSystem.h"
#include "PackageRepository.h"

#include "os/ProcessList.h"
#include "packages/Manifest.h"
#include "sqlite/InstallLogStore.h"
#include "update/UpdateThread.h"

#include <QtCore/QStringList>

#include <memory>

// A machine that is updated: folders of its own, and an UpdateThread whose runs the test waits for.
class TestMachine
{
public:
    explicit TestMachine(const QByteArray& pRoot,
                         tarn::os::ProcessList& pProcesses = tarn::os::realProcessList());

    tarn::vkservice::update::RunRequest& request() { return mRequest; }
    void setServers(const QStringList& pUris);
    FaultyFileSystem& fileSystem() { return mFileSystem; }
    QString path(const QString& pBelow) const { return mDir.filePath(pBelow); }
    QString installed(const QString& pBelow) const { return path(q("install/current/") + pBelow); }

    // Starts a run and waits for its end.
    tarn::vkservice::update::RunResult run();
    // Called with each new activity, on the test's thread.
    std::function<void(tarn::vkcore::ServiceActivity)> mOnActivity;
    std::function<void(const QString&)> mOnMessage;
    tarn::vkservice::update::UpdateThread& updater() { return *mRun; }
    // As when the service is started anew after a kill.
    bool restart(QString* pError = nullptr);

    QList<tarn::vkcore::ServiceActivity> mActivities; // of the last run
    QStringList mMessages;                            // notifications and errors of it, with their details

    // "name version" of what the current generation's manifest says, in order.
    QStringList packages() const;
    qint64 generation() const;
    // Every file that can be reached through the link "current", following links to packages.
    FileMap currentFiles() const;
    // "package version status" of the install log, in its order, with "<parent" where there is one.
    QStringList log(bool pTopLevelOnly = false) const;
    // What lies in staging folders, or below generations/ and packages/ without being needed.
    QStringList litter() const;

private:
    tarn::packages::Manifest manifest() const;

    QTemporaryDir mDir;
    tarn::os::ProcessList& mProcesses;
    FaultyFileSystem mFileSystem;
    tarn::vkservice::update::RunRequest mRequest;
    std::unique_ptr<tarn::vkservice::update::UpdateThread> mRun;
};

// What files() of TestPackages look like below "current".
FileMap filesOf(const QList<TestPackage>& pPackages);
