#include "packing/FolderScan.h"

#include "packages/EntryPath.h"

#include <QtCore/QFile>
#include <QtCore/QStringDecoder>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sMaxPath = 4096;

bool isUtf8(const QByteArray& pText)
{
    QStringDecoder tDecoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString tDecoded = tDecoder.decode(pText);
    return !tDecoder.hasError() && !tDecoded.isEmpty();
}

class Scan
{
public:
    Scan(const QByteArray& pFolder, std::vector<FolderEntry>* pTo) : mFolder(pFolder), mTo(pTo) {}

    Failure folder(const QByteArray& pPath)
    {
        Result<std::vector<QByteArray>> tNames = names(pPath);
        if (!tNames) {
            return tNames.failure();
        }
        std::sort(tNames->begin(), tNames->end());
        for (const QByteArray& tName : *tNames) {
            if (Failure tFailure = entry(pPath.isEmpty() ? tName : pPath + '/' + tName)) {
                return tFailure;
            }
        }
        return {};
    }

private:
    Failure refuse(const QByteArray& pPath, const QString& pReason) const
    {
        return Failure::content(u"%1: %2"_s.arg(QFile::decodeName(fullPath(pPath)), pReason));
    }

    Failure refuseErrno(const QByteArray& pPath) const { return refuse(pPath, qt_error_string(errno)); }

    QByteArray fullPath(const QByteArray& pPath) const
    {
        return pPath.isEmpty() ? mFolder : mFolder + '/' + pPath;
    }

    Result<std::vector<QByteArray>> names(const QByteArray& pPath) const
    {
        const std::unique_ptr<DIR, int (*)(DIR*)> tDir(::opendir(fullPath(pPath).constData()), ::closedir);
        if (!tDir) {
            return refuseErrno(pPath);
        }
        std::vector<QByteArray> tNames;
        errno = 0;
        while (const dirent* tEntry = ::readdir(tDir.get())) {
            const QByteArray tName(tEntry->d_name);
            if (tName != "." && tName != "..") {
                tNames.push_back(tName);
            }
        }
        if (errno != 0) {
            return refuseErrno(pPath);
        }
        return tNames;
    }

    Failure entry(const QByteArray& pPath)
    {
        FolderEntry tEntry{pPath, {}, {}};
        if (::lstat(fullPath(pPath).constData(), &tEntry.mStat) != 0) {
            return refuseErrno(pPath);
        }
        if (!isUtf8(pPath) || pPath.size() > sMaxPath) {
            return refuse(pPath, u"the name is too long or isn't UTF-8"_s);
        }
        const mode_t tType = tEntry.mStat.st_mode & S_IFMT;
        if (tType == S_IFLNK) {
            if (Failure tFailure = link(&tEntry)) {
                return tFailure;
            }
        }
        if (tType != S_IFLNK && tType != S_IFREG && tType != S_IFDIR) {
            return refuse(pPath, u"a package can't contain a device, pipe or socket"_s);
        }
        if (tType == S_IFREG && (tEntry.mStat.st_mode & (S_ISUID | S_ISGID)) != 0) {
            return refuse(pPath, u"a package can't contain a set-user-ID or set-group-ID file"_s);
        }
        mTo->push_back(tEntry);
        return tType == S_IFDIR ? folder(pPath) : Failure();
    }

    Failure link(FolderEntry* pEntry)
    {
        std::array<char, PATH_MAX> tTarget{};
        const ssize_t tLength =
            ::readlink(fullPath(pEntry->mPath).constData(), tTarget.data(), tTarget.size());
        if (tLength < 0) {
            return refuseErrno(pEntry->mPath);
        }
        pEntry->mLinkTarget = QByteArray(tTarget.data(), tLength);
        if (!isUtf8(pEntry->mLinkTarget)) {
            return refuse(pEntry->mPath, u"the link's target isn't UTF-8"_s);
        }
        const int tDepth = static_cast<int>(pEntry->mPath.count('/'));
        return packages::linkStaysInside(pEntry->mLinkTarget, tDepth)
                   ? Failure()
                   : refuse(pEntry->mPath, u"the link to %1 points, or may point, outside the package"_s.arg(
                                               QFile::decodeName(pEntry->mLinkTarget)));
    }

    QByteArray mFolder;
    std::vector<FolderEntry>* mTo;
};

} // namespace

Failure scanFolder(const QString& pFolder, std::vector<FolderEntry>* pTo)
{
    Scan tScan(QFile::encodeName(pFolder), pTo);
    if (Failure tFailure = tScan.folder(QByteArray())) {
        return tFailure;
    }
    if (pTo->empty()) {
        return Failure::content(u"%1 is empty"_s.arg(pFolder));
    }
    return {};
}

} // namespace tarn::vkpublish
