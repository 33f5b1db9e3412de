#include "packages/Installation.h"

#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sPrivateFile = 0600;
constexpr qint64 sMaxSize = 1024 * 1024;
constexpr int sFormat = 1;

QString pathIn(const QString& pStateDir)
{
    return pStateDir + u"/installation.json"_s;
}

} // namespace

Installation::Installation(os::FileSystem& pFileSystem, const QString& pStateDir)
    : mFileSystem(pFileSystem), mPath(pathIn(pStateDir))
{
}

bool Installation::isIn(const QString& pStateDir)
{
    return QFileInfo::exists(pathIn(pStateDir));
}

Failure Installation::read()
{
    if (!QFileInfo::exists(mPath)) {
        return {};
    }
    const Result<QByteArray> tBytes = os::readFile(mFileSystem, mPath, sMaxSize);
    if (!tBytes) {
        return tBytes.failure();
    }
    const QJsonObject tObject = QJsonDocument::fromJson(*tBytes).object();
    const QString tId = tObject.value("id"_L1).toString();
    QStringList tRoots;
    bool tIsSound = tObject.value("format"_L1).toInt() == sFormat && !tId.isEmpty();
    const QJsonArray tValues = tObject.value("roots"_L1).toArray();
    for (const QJsonValue tValue : tValues) {
        tRoots.append(tValue.toString());
        tIsSound = tIsSound && QDir::isAbsolutePath(tRoots.last());
    }
    if (!tIsSound) {
        return Failure::content(
            u"%1 is damaged. Remove it: it is rebuilt from the folders of packages"_s.arg(mPath));
    }
    mId = tId;
    mRoots = tRoots;
    return {};
}

Failure Installation::setId(const QString& pId)
{
    return mId == pId ? Failure() : write(pId, mRoots);
}

Failure Installation::addRoot(const QString& pRoot)
{
    return mRoots.contains(pRoot) ? Failure() : write(mId, mRoots + QStringList{pRoot});
}

Failure Installation::write(const QString& pId, const QStringList& pRoots)
{
    const QJsonObject tObject{
        {u"format"_s, sFormat}, {u"id"_s, pId}, {u"roots"_s, QJsonArray::fromStringList(pRoots)}};
    const Failure tFailure =
        os::replaceFile(mFileSystem, mPath, QJsonDocument(tObject).toJson(), sPrivateFile);
    if (!tFailure) {
        mId = pId;
        mRoots = pRoots;
    }
    return tFailure;
}

} // namespace tarn::packages
