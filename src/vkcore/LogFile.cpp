#include "LogFile.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn::vkcore {

namespace {

QByteArray stamp()
{
    timespec tNow{};
    ::clock_gettime(CLOCK_REALTIME, &tNow);
    tm tLocal{};
    ::localtime_r(&tNow.tv_sec, &tLocal);
    char tText[80];
    const int tLength =
        std::snprintf(tText, sizeof tText, "%04d-%02d-%02d %02d:%02d:%02d.%03ld [%d] ", tLocal.tm_year + 1900,
                      tLocal.tm_mon + 1, tLocal.tm_mday, tLocal.tm_hour, tLocal.tm_min, tLocal.tm_sec,
                      tNow.tv_nsec / 1000000, ::getpid());
    return {tText, tLength};
}

// O_NONBLOCK: a pipe in place of the file must not block the program.
int openForAppending(const QByteArray& pPath)
{
    constexpr int tFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;
    return ::open(pPath.constData(), tFlags, 0640);
}

bool isPlain(char pByte)
{
    const auto tByte = static_cast<unsigned char>(pByte);
    return (tByte >= 0x20 && tByte != 0x7f) || pByte == '\t';
}

void appendEscaped(QByteArray& pTo, char pByte)
{
    if (pByte == '\n') {
        // Indented, so that foreign text can't look like a separate log line.
        pTo += "\n    ";
    } else {
        pTo += "\\x" + QByteArray(&pByte, 1).toHex();
    }
}

// Leading line ends precede the timestamp and give blank lines.
QByteArray lineOf(const QString& pText)
{
    const QByteArray tText = pText.toUtf8();
    auto tAt = std::find_if(tText.cbegin(), tText.cend(), [](char tByte) { return tByte != '\n'; });
    QByteArray tLine = QByteArray(tText.cbegin(), tAt - tText.cbegin()) + stamp();
    while (tAt != tText.cend()) {
        const auto tPlainEnd = std::find_if_not(tAt, tText.cend(), isPlain);
        tLine.append(tAt, tPlainEnd - tAt);
        tAt = tPlainEnd;
        if (tAt != tText.cend()) {
            appendEscaped(tLine, *tAt++);
        }
    }
    return tLine += '\n';
}

} // namespace

LogFile::LogFile(const QString& pPath, int pKeep, qint64 pMaxSize)
    : mPath(QFile::encodeName(pPath)), mKeep(qMax(0, pKeep)), mMaxSize(pMaxSize)
{
}

LogFile::~LogFile()
{
    close();
}

bool LogFile::open()
{
    mFd = openForAppending(mPath);
    if (mFd < 0 && errno == ENOENT && QDir().mkpath(QFileInfo(QFile::decodeName(mPath)).path())) {
        mFd = openForAppending(mPath);
    }
    struct stat tStat
    {
    };
    if (mFd >= 0 && (::fstat(mFd, &tStat) != 0 || !S_ISREG(tStat.st_mode))) {
        close();
    }
    return mFd >= 0;
}

void LogFile::close()
{
    if (mFd >= 0) {
        ::close(mFd);
        mFd = -1;
    }
}

LogFile::State LogFile::state(qsizetype pBytes) const
{
    struct stat tOpen
    {
    };
    struct stat tNamed
    {
    };
    if (::fstat(mFd, &tOpen) != 0 || ::lstat(mPath.constData(), &tNamed) != 0 ||
        tOpen.st_ino != tNamed.st_ino || tOpen.st_dev != tNamed.st_dev) {
        return State::Replaced;
    }
    return tOpen.st_size > 0 && tOpen.st_size + pBytes > mMaxSize ? State::Full : State::Ready;
}

QByteArray LogFile::pathOf(int pAge) const
{
    return pAge == 0 ? mPath : mPath + '.' + QByteArray::number(pAge);
}

// Under a lock on the full file itself: a second process then finds another file at the path. A process that
// does not get the lock at once leaves the rotation to its holder.
void LogFile::rotate()
{
    if (::flock(mFd, LOCK_EX | LOCK_NB) != 0) {
        return;
    }
    if (state(0) != State::Replaced) {
        if (mKeep == 0) {
            ::unlink(mPath.constData());
        }
        int tOldest = qMin(1, mKeep);
        while (tOldest < mKeep && ::access(pathOf(tOldest).constData(), F_OK) == 0) {
            ++tOldest;
        }
        for (int tAge = tOldest; tAge > 0; --tAge) {
            ::rename(pathOf(tAge - 1).constData(), pathOf(tAge).constData());
        }
    }
    close();
}

void LogFile::write(const QString& pText)
{
    const QByteArray tLine = lineOf(pText);
    // Other processes may rotate the file in between; the last attempt writes to any file.
    for (int tTry = 0; tTry < 3; ++tTry) {
        if (mFd < 0 && !open()) {
            return;
        }
        const State tState = state(tLine.size());
        if (tState == State::Ready) {
            break;
        }
        if (tState == State::Full) {
            rotate();
        } else {
            close();
        }
    }
    if (mFd < 0 && !open()) {
        return;
    }
    [[maybe_unused]] const ssize_t tWritten =
        ::write(mFd, tLine.constData(), static_cast<size_t>(tLine.size()));
}

} // namespace tarn::vkcore
