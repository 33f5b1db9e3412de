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

    // Plays the checks of new generations.
    class Checks : public tarn::os::CheckRunner
    {
    public:
        std::function<tarn::os::CheckOutcome(const tarn::os::CheckProgram&)> mOnRun;
        QStringList mPrograms; // the administrator's

        QStringList programs(const QString&, QStringList*) override { return mPrograms; }
        tarn::os::CheckOutcome run(const tarn::os::CheckProgram& pProgram,
                                   const tarn::os::AbortFlag&) override
        {
            return mOnRun ? mOnRun(pProgram) : tarn::os::CheckOutcome{.mPassed = true};
        }
    };
    Checks& checks() { return mChecks; }

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
    // Like a new start of the service after a kill.
    bool restart(QString* pError = nullptr);

    QList<tarn::vkcore::ServiceActivity> mActivities; // of the last run
    QStringList mMessages;                            // its notifications and errors, with their details

    tarn::packages::Manifest manifest() const;
    // "name version" from the current generation's manifest, in order.
    QStringList packages() const;
    qint64 generation() const;
    // Every file below the link "current", following links to packages.
    FileMap currentFiles() const;
    // "package version status" of the install log, in its order, with "<parent" if there is one.
    QStringList log(bool pTopLevelOnly = false) const;
    // The contents of staging folders, and unneeded folders below generations/ and packages/.
    QStringList litter() const;

private:
    QTemporaryDir mDir;
    tarn::os::ProcessList& mProcesses;
    FaultyFileSystem mFileSystem;
    Checks mChecks;
    tarn::vkservice::update::RunRequest mRequest;
    std::unique_ptr<tarn::vkservice::update::UpdateThread> mRun;
};

// The files() of TestPackages as seen below "current".
FileMap filesOf(const QList<TestPackage>& pPackages);
