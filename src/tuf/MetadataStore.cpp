#include "tuf/MetadataStore.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Names.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <system_error>

using namespace Qt::StringLiterals;

namespace tarn::tuf {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr mode_t sFolderMode = 0755;

Failure localError(const QString& pText, const QString& pPath)
{
    return Failure{Failure::Kind::Damaged,
                   pText.arg(pPath, QString::fromStdString(std::generic_category().message(errno)))};
}

} // namespace

MetadataStore::MetadataStore(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
}

QString MetadataStore::pathOf(const QString& pRole, Copy pCopy) const
{
    return u"%1/%2.%3"_s.arg(mFolder, encodeName(pRole), pCopy == Copy::Trusted ? u"json"_s : u"refused"_s);
}

Failure MetadataStore::load(const QString& pRole, qint64 pMaxLength, QByteArray* pTo, Copy pCopy)
{
    Failure tFailure = readWholeFile(mFileSystem, pathOf(pRole, pCopy), pMaxLength, pTo);
    if (tFailure.mKind == Failure::Kind::Untrusted) {
        tFailure.mKind = Failure::Kind::NotFound;
    }
    return tFailure;
}

Failure MetadataStore::save(const QString& pRole, const QByteArray& pFile, Copy pCopy)
{
    return writeFileAtomically(mFileSystem, pathOf(pRole, pCopy), pFile, sFileMode);
}

Failure MetadataStore::remove(const QString& pRole)
{
    const Failure tFailure = removeFile(pathOf(pRole, Copy::Refused));
    return tFailure ? tFailure : removeFile(pathOf(pRole, Copy::Trusted));
}

Failure MetadataStore::removeFile(const QString& pPath)
{
    if (mFileSystem.unlink(QFile::encodeName(pPath)) == 0 || errno == ENOENT) {
        return Failure();
    }
    return localError(u"The file %1 can't be removed: %2"_s, pPath);
}

Failure MetadataStore::clear()
{
    if (!QDir().mkpath(QFileInfo(mFolder).absolutePath()) ||
        (mFileSystem.makeDir(QFile::encodeName(mFolder), sFolderMode) != 0 && errno != EEXIST)) {
        return localError(u"The folder %1 can't be created: %2"_s, mFolder);
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
