#include "update/FreeSpace.h"

#include "os/FileSystem.h"

#include <QtCore/QFile>
#include <QtCore/QLocale>
#include <QtCore/QMap>

#include <cerrno>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// For partly filled blocks, folders, links and manifests.
constexpr qint64 sOverheadShare = 32;
constexpr qint64 sOverheadBytes = 1024 * 1024;

QString inWords(qint64 pBytes)
{
    return QLocale::c().formattedDataSize(pBytes, 1);
}

} // namespace

void addBytes(qint64* pTo, qint64 pBytes)
{
    if (__builtin_add_overflow(*pTo, pBytes, pTo)) {
        *pTo = std::numeric_limits<qint64>::max();
    }
}

Failure checkFreeSpace(os::FileSystem& pFileSystem, const QList<SpaceNeed>& pNeeds)
{
    QMap<dev_t, qint64> tTotals;
    for (const SpaceNeed& tNeed : pNeeds) {
        const QByteArray tPath = QFile::encodeName(tNeed.mFolder);
        struct statvfs tVfs;
        struct stat tStat;
        if (pFileSystem.statVfs(tPath, &tVfs) != 0 || ::stat(tPath.constData(), &tStat) != 0) {
            const QString tWhat = u"find out the free space of %1"_s.arg(tNeed.mFolder);
            return Failure::fromErrno(errno, tWhat);
        }
        qint64& tTotal = tTotals[tStat.st_dev];
        addBytes(&tTotal, tNeed.mBytes);
        const qint64 tFree = static_cast<qint64>(tVfs.f_bavail) * static_cast<qint64>(tVfs.f_frsize);
        if (tTotal > tFree) {
            return {Failure::Kind::NoSpace,
                    u"The update needs %1 on the disk of %2, where %3 are free: free some space and "
                    "start it again"_s.arg(inWords(tTotal), tNeed.mFolder, inWords(tFree))};
        }
    }
    return {};
}

SpaceNeed unpackingNeed(const QString& pRoot, qint64 pBytes)
{
    SpaceNeed tNeed{pRoot, sOverheadBytes};
    addBytes(&tNeed.mBytes, pBytes);
    addBytes(&tNeed.mBytes, pBytes / sOverheadShare);
    return tNeed;
}

} // namespace tarn::vkservice::update
