#include "packages/TrialRecord.h"

#include "packages/Manifest.h"
#include "packages/StateRecord.h"

#include <QtCore/QFile>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr int sFormat = 1;
constexpr qint64 sMaxSize = 64 * 1024;

QString pathIn(const QString& pStateDir)
{
    return pStateDir + u"/trial.json"_s;
}

} // namespace

bool TrialRecord::isOf(const Manifest& pManifest) const
{
    return mGeneration > 0 && mGeneration == pManifest.mGeneration && mRun == pManifest.mRunId;
}

QByteArray TrialRecord::toBytes() const
{
    return QJsonDocument(QJsonObject{{u"format"_s, sFormat},
                                     {u"generation"_s, mGeneration},
                                     {u"run"_s, mRun},
                                     {u"back"_s, mBack},
                                     {u"attempts"_s, mAttempts},
                                     {u"verdict"_s, mVerdict}})
        .toJson();
}

Result<TrialRecord> TrialRecord::fromBytes(const QByteArray& pBytes)
{
    return recordFrom<TrialRecord>(pBytes, sFormat, [](vkcore::JsonReader& pReader, TrialRecord* pTo) {
        pTo->mGeneration = pReader.integer("generation", 1);
        pTo->mRun = pReader.text("run");
        pTo->mBack = pReader.integer("back", 0);
        pTo->mAttempts = static_cast<int>(pReader.integer("attempts", 0, sMaxAttempts));
        pTo->mVerdict = pReader.text("verdict");
    });
}

Result<TrialRecord> TrialRecord::load(os::FileSystem& pFileSystem, const QString& pStateDir)
{
    return loadRecord<TrialRecord>(pFileSystem, pathIn(pStateDir), sMaxSize);
}

Failure TrialRecord::store(os::FileSystem& pFileSystem, const QString& pStateDir) const
{
    return storeRecord(pFileSystem, pathIn(pStateDir), toBytes());
}

Failure TrialRecord::remove(os::FileSystem& pFileSystem, const QString& pStateDir)
{
    const QString tPath = pathIn(pStateDir);
    if (pFileSystem.unlink(QFile::encodeName(tPath)) != 0) {
        return errno == ENOENT ? Failure() : Failure::fromErrno(errno, u"remove %1"_s.arg(tPath));
    }
    return os::syncDir(pFileSystem, pStateDir);
}

} // namespace tarn::packages
