#include "TestMachine.h"

#include "TestArchive.h"

#include <QtCore/QEventLoop>
#include <QtCore/QSet>

#include <climits>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using tarn::vkcore::ServiceActivity;

TestMachine::TestMachine(const QByteArray& pRoot, os::ProcessList& pProcesses) : mProcesses(pProcesses)
{
    writeFile(path(q("root.json")), pRoot);
    mRequest.mRootFile = path(q("root.json"));
    mRequest.mStateDir = path(q("state"));
    mRequest.mInstallDir = path(q("install"));
    mRequest.mAppLanguage = q("en");
    mRequest.mDataLanguage = q("en");
    mRequest.mWaitForAppsSeconds = 20;
    mRequest.mKeepGenerations = 1;
    mRequest.mCheckDir = path(q("check.d"));
    restart();
}

void TestMachine::setServers(const QStringList& pUris)
{
    mRequest.mServers.clear();
    for (const QString& tUri : pUris) {
        mRequest.mServers.append({q("server %1").arg(mRequest.mServers.size()), tUri, {}, {}});
    }
}

bool TestMachine::restart(QString* pError)
{
    mRun = std::make_unique<UpdateThread>(mFileSystem, mProcesses, mChecks);
    QObject::connect(mRun.get(), &UpdateThread::activityChanged, mRun.get(),
                     [this](ServiceActivity pActivity) {
                         mActivities.append(pActivity);
                         if (mOnActivity) {
                             mOnActivity(pActivity);
                         }
                     });
    const auto tHear = [this](int, const QString& pText, const QString& pDetails) {
        mMessages.append(pText + u'|' + pDetails);
        if (mOnMessage) {
            mOnMessage(pText);
        }
    };
    QObject::connect(mRun.get(), &UpdateThread::notification, mRun.get(), tHear);
    QObject::connect(mRun.get(), &UpdateThread::error, mRun.get(), tHear);
    const Failure tFailure = mRun->recover(mRequest);
    if (pError != nullptr) {
        *pError = tFailure.mText;
    }
    return !tFailure;
}

RunResult TestMachine::run()
{
    mActivities.clear();
    mMessages.clear();
    RunResult tResult;
    QEventLoop tLoop;
    const auto tConnection =
        QObject::connect(mRun.get(), &UpdateThread::finished, &tLoop, [&](const RunResult& pResult) {
            tResult = pResult;
            tLoop.quit();
        });
    if (mRun->start(mRequest)) {
        tLoop.exec();
    }
    QObject::disconnect(tConnection);
    return tResult;
}

packages::Manifest TestMachine::manifest() const
{
    return packages::Manifest::fromBytes(readFile(installed(packages::manifestFileName()))).valueOr({});
}

QStringList TestMachine::packages() const
{
    QStringList tNames;
    const packages::Manifest tManifest = manifest();
    for (const packages::InstalledPackage& tPackage : tManifest.mPackages) {
        tNames.append(tPackage.mInfo.mName + u' ' + tPackage.mInfo.mVersion.version().toTarnAppFormat());
    }
    return tNames;
}

qint64 TestMachine::generation() const
{
    return manifest().mGeneration;
}

FileMap TestMachine::currentFiles() const
{
    FileMap tFiles;
    const QStringList tLinks = QDir(installed(QString())).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    for (const QString& tLink : tLinks) {
        const FileMap tBelow = readTree(QFileInfo(installed(tLink)).canonicalFilePath());
        for (auto tIt = tBelow.begin(); tIt != tBelow.end(); ++tIt) {
            tFiles.insert(tLink + u'/' + tIt.key(), tIt.value());
        }
    }
    return tFiles;
}

QStringList TestMachine::log(bool pTopLevelOnly) const
{
    tarn::vkcore::InstallLogStore tStore;
    QList<tarn::vkcore::GRef2<tarn::vkcore::InstLogEntry>> tEntries;
    tStore.openForReading(path(q("state/install-log.db")));
    tStore.read(&tEntries, QDateTime::currentDateTime().addDays(-1), QDateTime(), INT_MAX, pTopLevelOnly);
    QStringList tLines;
    for (const auto& tEntry : tEntries) {
        tLines.append(q("%1 %2 %3")
                          .arg(tEntry->mName.bestValue(q("en")).section(u' ', -1),
                               tEntry->mVersion.toTarnAppFormat(), tEntry->mStatus));
    }
    tLines.sort();
    return tLines;
}

QStringList TestMachine::litter() const
{
    const auto tFilter = QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot;
    const auto tBelow = [tFilter](const QString& pDir) { return QDir(pDir).entryInfoList(tFilter); };
    QStringList tLitter;
    QSet<QString> tNeeded;
    const QStringList tKept{QString::number(generation()), QString::number(manifest().mPrevious)};
    for (const QFileInfo& tGeneration : tBelow(mRequest.mInstallDir + q("/generations"))) {
        if (!tKept.contains(tGeneration.fileName())) {
            tLitter.append(tGeneration.filePath());
        }
        for (const QFileInfo& tLink : tBelow(tGeneration.filePath())) {
            tNeeded.insert(tLink.canonicalFilePath());
        }
    }
    for (const QString& tRoot : {mRequest.mInstallDir, mRequest.mDataDir}) {
        if (tRoot.isEmpty()) {
            continue;
        }
        QFileInfoList tFound = tBelow(tRoot + q("/.staging"));
        for (const QFileInfo& tPackage : tBelow(tRoot + q("/packages"))) {
            tFound += tBelow(tPackage.filePath());
        }
        for (const QFileInfo& tInfo : tFound) {
            if (!tNeeded.contains(tInfo.canonicalFilePath())) {
                tLitter.append(tInfo.filePath());
            }
        }
    }
    return tLitter;
}

FileMap filesOf(const QList<TestPackage>& pPackages)
{
    FileMap tFiles;
    for (const TestPackage& tPackage : pPackages) {
        for (auto tIt = tPackage.mFiles.begin(); tIt != tPackage.mFiles.end(); ++tIt) {
            tFiles.insert(tPackage.mName + u'/' + tIt.key(), tIt.value());
        }
    }
    return tFiles;
}
