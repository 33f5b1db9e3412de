#include "update/TrustExpiry.h"

#include "update/TrustFolder.h"

#include <QtCore/QFile>

#include <sys/stat.h>

#include <ctime>

namespace tarn::vkservice::update {

namespace {

constexpr time_t sTickSeconds = 2; // a second change may have the same time as the first one for so long

} // namespace

QDateTime TrustExpiry::of(const QString& pStateDir)
{
    TrustFolder tTrust(mFileSystem, pStateDir);
    struct stat tStat;
    if (!tTrust.usePrevious() || ::stat(QFile::encodeName(tTrust.path()).constData(), &tStat) != 0) {
        return {};
    }
    const bool tIsSame = tTrust.path() == mPath && tStat.st_mtim.tv_sec == mChanged.tv_sec &&
                         tStat.st_mtim.tv_nsec == mChanged.tv_nsec;
    if (!tIsSame) {
        mExpiry = tTrust.earliestExpiry();
        const bool tIsFresh = std::time(nullptr) - tStat.st_mtim.tv_sec < sTickSeconds;
        mPath = tIsFresh ? QString() : tTrust.path();
        mChanged = tStat.st_mtim;
    }
    return mExpiry;
}

} // namespace tarn::vkservice::update
