#include "tuf/MetadataStore.h"

#include "os/FileTools.h"
#include "tuf/Names.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr mode_t sFolderMode = 0755;

} // namespace

MetadataStore::MetadataStore(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
}

QString MetadataStore::pathOf(const QString& pRole, Copy pCopy) const
{
    return u"%1/%2.%3"_s.arg(mFolder, encodeName(pRole), pCopy == Copy::Trusted ? u"json"_s : u"refused"_s);
}

bool MetadataStore::has(const QString& pRole) const
{
    return QFile::exists(pathOf(pRole, Copy::Trusted));
}

Result<QByteArray> MetadataStore::load(const QString& pRole, qint64 pMaxLength, Copy pCopy)
{
    Result<QByteArray> tFile = os::readFile(mFileSystem, pathOf(pRole, pCopy), pMaxLength);
    if (tFile) {
        return tFile;
    }
    const bool tDiskFailed = tFile.failure().mKind == Failure::Kind::Io;
    return tFile.failure().as(tDiskFailed ? Failure::Kind::Damaged : Failure::Kind::NotFound);
}

Failure MetadataStore::save(const QString& pRole, const QByteArray& pFile, Copy pCopy)
{
    return os::replaceFile(mFileSystem, pathOf(pRole, pCopy), pFile, sFileMode).as(Failure::Kind::Damaged);
}

Failure MetadataStore::remove(const QString& pRole)
{
    if (Failure tFailure = removeFile(pathOf(pRole, Copy::Refused))) {
        return tFailure;
    }
    return removeFile(pathOf(pRole, Copy::Trusted));
}

Failure MetadataStore::removeFile(const QString& pPath)
{
    if (mFileSystem.unlink(QFile::encodeName(pPath)) == 0 || errno == ENOENT) {
        return Failure();
    }
    return Failure::fromErrno(errno, u"remove %1"_s.arg(pPath)).as(Failure::Kind::Damaged);
}

Failure MetadataStore::clear()
{
    if (!QDir().mkpath(QFileInfo(mFolder).absolutePath()) ||
        (mFileSystem.makeDir(QFile::encodeName(mFolder), sFolderMode) != 0 && errno != EEXIST)) {
        return Failure::fromErrno(errno, u"create the folder %1"_s.arg(mFolder)).as(Failure::Kind::Damaged);
    }
    const QStringList tNames =
        QDir(mFolder).entryList({u"*.json"_s, u"*.refused"_s}, QDir::Files | QDir::Hidden);
    for (const QString& tName : tNames) {
        if (const Failure tFailure = removeFile(mFolder + u'/' + tName)) {
            return tFailure;
        }
    }
    return Failure();
}

} // namespace tarn::tuf
