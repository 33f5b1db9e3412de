#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::vkcore {

// The log of a program: lines with time and process id, each call appended with one write, so that many
// processes can use one file. At sMaxSize bytes the file is renamed to PATH.1, PATH.1 to PATH.2 and so on.
// The folder is created if missing. Failures are never reported to the caller.
class LogFile
{
public:
    static constexpr qint64 sMaxSize = 1024 * 1024;

    // pKeep: how many old files are kept.
    LogFile(const QString& pPath, int pKeep, qint64 pMaxSize = sMaxSize);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void write(const QString& pText);

private:
    bool open();
    void close();
    // Whether the open file is still the one at the path, and has room for pBytes more.
    enum class State
    {
        Ready,
        Replaced,
        Full
    };
    State state(qsizetype pBytes) const;
    void rotate();
    QByteArray pathOf(int pAge) const;

    QByteArray mPath;
    int mKeep;
    qint64 mMaxSize;
    int mFd = -1;
};

} // namespace tarn::vkcore
