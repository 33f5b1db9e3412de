#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::vkcore {

// The log of a program: lines with time and process number, each call appended with one write, so that many
// processes can log into one file at once. At sMaxSize bytes the file moves on to PATH.1, PATH.1 to
// PATH.2 and so on. The folder is made if it is missing. No failure ever reaches the caller: a log that can't
// be written is no log.
class LogFile
{
public:
    static constexpr qint64 sMaxSize = 1024 * 1024;

    // pKeep: how many old files stay.
    LogFile(const QString& pPath, int pKeep, qint64 pMaxSize = sMaxSize);
    ~LogFile();
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    void write(const QString& pText);

private:
    bool open();
    void close();
    // Whether the open file is still the one that the path leads to, and has room for pBytes more.
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
