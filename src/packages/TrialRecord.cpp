#include "packages/TrialRecord.h"

#include "internal/JsonReader.h"
#include "os/FileTools.h"
#include "packages/Manifest.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr int sFormat = 1;
constexpr mode_t sPrivateFile = 0600;
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
    QString tFault;
    vkcore::JsonReader tReader(QJsonDocument::fromJson(pBytes).object(), &tFault);
    TrialRecord tRecord;
    tReader.integer("format", sFormat, sFormat);
    tRecord.mGeneration = tReader.integer("generation", 1);
    tRecord.mRun = tReader.text("run");
    tRecord.mBack = tReader.integer("back", 0);
    tRecord.mAttempts = static_cast<int>(tReader.integer("attempts", 0, sMaxAttempts));
    tRecord.mVerdict = tReader.text("verdict");
    return tReader.ok() ? Result<TrialRecord>(tRecord) : Failure::content(tFault);
}

Result<TrialRecord> TrialRecord::load(os::FileSystem& pFileSystem, const QString& pStateDir)
{
    const QString tPath = pathIn(pStateDir);
    const Result<QByteArray> tBytes = os::readFile(pFileSystem, tPath, sMaxSize);
    if (!tBytes) {
        return tBytes.failure().mKind == Failure::Kind::NotFound ? Result<TrialRecord>(TrialRecord())
                                                                 : tBytes.failure();
    }
    const Result<TrialRecord> tRecord = fromBytes(*tBytes);
    return tRecord ? tRecord : Failure::content(u"%1 is damaged (%2)"_s.arg(tPath, tRecord.failure().mText));
}

Failure TrialRecord::store(os::FileSystem& pFileSystem, const QString& pStateDir) const
{
    return os::replaceFile(pFileSystem, pathIn(pStateDir), toBytes(), sPrivateFile);
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
