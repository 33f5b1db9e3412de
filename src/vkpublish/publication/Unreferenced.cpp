#include "publication/Unreferenced.h"

#include "publication/FolderFiles.h"
#include "publication/Layout.h"
#include "record/Record.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

#include <QtCore/QFile>
#include <QtCore/QSet>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Relative to the repository; without those of the published packages.
QSet<QString> referencedFiles(const QString& pRepository, const Record& pRecord)
{
    QStringList tPaths{timestampPath(pRepository)};
    for (const auto& [tRole, tFile] : {std::pair(tuf::sTargets, pRecord.mPublishedTargetsFile),
                                       std::pair(tuf::sSnapshot, pRecord.mPublishedSnapshot)}) {
        tPaths.append(versionedPath(pRepository, tRole, tFile.mMeta["version"_L1].toInteger()));
    }
    for (auto tIt = pRecord.mTargets.begin(); tIt != pRecord.mTargets.end(); ++tIt) {
        if (pRecord.mPublishedTargets.text(tIt.key()) != tIt.text()) {
            for (const TargetsFile& tFile : filesOf(tIt.key(), tIt.value().toObject())) {
                tPaths.append(targetsFolder(pRepository) + u'/' + tFile.mName);
            }
        }
    }
    QSet<QString> tFiles;
    for (const QString& tPath : tPaths) {
        tFiles.insert(tPath.mid(pRepository.size() + 1));
    }
    return tFiles;
}

// Who may write to the repository must not have files elsewhere deleted.
Failure checkLink(const QString& pFolder)
{
    struct stat tStat = {};
    const bool tIsForeign = ::lstat(QFile::encodeName(pFolder).constData(), &tStat) == 0 &&
                            S_ISLNK(tStat.st_mode) && tStat.st_uid != 0 && tStat.st_uid != ::geteuid();
    return tIsForeign ? Failure::content(u"%1 is a link that another user has made: nothing is deleted "
                                         "there"_s.arg(pFolder))
                      : Failure();
}

} // namespace

void noteUnreferenced(const QString& pRepository, const QStringList& pUnnamed, const QDateTime& pNow,
                      Record* pRecord)
{
    const QSet<QString> tReferenced = referencedFiles(pRepository, *pRecord);
    const QMap<QString, QDateTime> tKnown = std::exchange(pRecord->mUnreferenced, {});
    const auto tNote = [&](const QString& pName) {
        if (!tReferenced.contains(pName)) {
            pRecord->mUnreferenced.insert(pName, std::min(tKnown.value(pName, pNow), pNow));
        }
    };
    for (const QString& tName : pUnnamed) {
        tNote(targetsFolder({}).mid(1) + u'/' + tName);
    }
    const QHash<QString, qint64> tMetadata = filesIn(metadataFolder(pRepository));
    for (auto tIt = tMetadata.begin(); tIt != tMetadata.end(); ++tIt) {
        // All roots are kept: a client that was off for years follows them one by one.
        if (!tIt.key().endsWith(".root.json"_L1)) {
            tNote(metadataFolder({}).mid(1) + u'/' + tIt.key());
        }
    }
}

Failure deleteUnreferenced(os::FileSystem& pFileSystem, const QString& pRepository, const QDateTime& pNow,
                           qint64 pGrace, Record* pRecord)
{
    for (const QString& tFolder : {metadataFolder(pRepository), targetsFolder(pRepository)}) {
        if (Failure tFailure = checkLink(tFolder)) {
            return tFailure;
        }
    }
    for (auto tIt = pRecord->mUnreferenced.begin(); tIt != pRecord->mUnreferenced.end();) {
        const QString tPath = pRepository + u'/' + tIt.key();
        if (tIt.value().secsTo(pNow) < pGrace) {
            ++tIt;
        } else if (pFileSystem.unlink(QFile::encodeName(tPath)) == 0 || errno == ENOENT) {
            tIt = pRecord->mUnreferenced.erase(tIt);
        } else {
            return Failure::fromErrno(errno, u"remove %1"_s.arg(tPath));
        }
    }
    return {};
}

} // namespace tarn::vkpublish
