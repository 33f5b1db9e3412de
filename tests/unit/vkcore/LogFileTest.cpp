#include "LogFile.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QRegularExpression>
#include <QtCore/QSet>
#include <QtCore/QTemporaryDir>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using tarn::vkcore::LogFile;

namespace {

class LogFileTest : public ::testing::Test
{
protected:
    QByteArray bytesOf(const QString& pPath) const
    {
        QFile tFile(pPath);
        return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
    }
    // The log with every stamp replaced.
    std::string text() const
    {
        static const QRegularExpression sStamp(
            QStringLiteral(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[\d+\] )"));
        return QString::fromUtf8(bytesOf(mPath)).replace(sStamp, QStringLiteral("> ")).toStdString();
    }

    QTemporaryDir mDir;
    QString mPath = mDir.filePath(QStringLiteral("log/rkm.log"));
};

} // namespace

TEST_F(LogFileTest, LineFormat)
{
    const struct
    {
        QString mText;
        const char* mLine;
    } tCases[] = {
        {QStringLiteral("plain"), "> plain\n"},
        {QString(), "> \n"},
        {QStringLiteral("\nblank line before"), "\n> blank line before\n"},
        {QStringLiteral("two\nlines"), "> two\n    lines\n"},
        {QStringLiteral("a\x1b[2Jb\rc\td"), "> a\\x1b[2Jb\\x0dc\td\n"},
        {QStringLiteral("Gr\u00fc\u00dfe"), "> Gr\u00fc\u00dfe\n"},
        {QString(QChar(0xd800)), "> ?\n"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mLine);
        QFile::remove(mPath);
        LogFile(mPath, 0).write(tCase.mText);
        EXPECT_EQ(text(), tCase.mLine);
    }
}

TEST_F(LogFileTest, ManyProcessesLoseNoLineWhileTheFileRotates)
{
    constexpr int sProcesses = 8;
    constexpr int sLines = 400;
    constexpr int sKeep = 200;
    for (int tProcess = 0; tProcess < sProcesses; ++tProcess) {
        if (::fork() == 0) {
            LogFile tLog(mPath, sKeep, 4096);
            for (int tLine = 0; tLine < sLines; ++tLine) {
                tLog.write(QStringLiteral("process %1 line %2 end").arg(tProcess).arg(tLine));
            }
            ::_exit(0);
        }
    }
    for (int tProcess = 0; tProcess < sProcesses; ++tProcess) {
        ASSERT_GT(::wait(nullptr), 0);
    }
    static const QRegularExpression sLine(
        QStringLiteral(R"(^[-0-9:. ]{24}\[\d+\] (process \d line \d+ end)$)"));
    QSet<QString> tFound;
    const QFileInfoList tFiles = QFileInfo(mPath).dir().entryInfoList(QDir::Files);
    EXPECT_GT(tFiles.size(), 3);
    for (const QFileInfo& tFile : tFiles) {
        for (const QByteArray& tLine : bytesOf(tFile.filePath()).trimmed().split('\n')) {
            const auto tMatch = sLine.match(QString::fromUtf8(tLine));
            EXPECT_TRUE(tMatch.hasMatch()) << tLine.constData();
            tFound.insert(tMatch.captured(1));
        }
    }
    EXPECT_EQ(tFound.size(), sProcesses * sLines);
}

TEST_F(LogFileTest, KeepsAsManyOldFilesAsTold)
{
    for (const int tKeep : {0, 1, 2}) {
        SCOPED_TRACE(tKeep);
        QDir(QFileInfo(mPath).path()).removeRecursively();
        LogFile tLog(mPath, tKeep, 100);
        for (int tLine = 0; tLine < 20; ++tLine) {
            tLog.write(QStringLiteral("line %1 of some length, so that two fill a file").arg(tLine));
        }
        EXPECT_EQ(QFileInfo(mPath).dir().entryList(QDir::Files).size(), tKeep + 1);
        EXPECT_NE(text().find("line 19"), std::string::npos);
    }
}

TEST_F(LogFileTest, FollowsAFileThatWasMovedAway)
{
    LogFile tLog(mPath, 1);
    tLog.write(QStringLiteral("one"));
    ASSERT_TRUE(QFile::rename(mPath, mPath + QStringLiteral(".old")));
    tLog.write(QStringLiteral("two"));
    EXPECT_EQ(text(), "> two\n");
}

TEST_F(LogFileTest, PlacesThatCanNotBeWrittenDoNoHarm)
{
    LogFile(QStringLiteral("/proc/no/such.log"), 2).write(QStringLiteral("x"));
    LogFile(mDir.path(), 2).write(QStringLiteral("x"));
    const QString tPipe = mDir.filePath(QStringLiteral("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(tPipe).constData(), 0600), 0);
    LogFile(tPipe, 2).write(QStringLiteral("must not hang"));
    const QString tLink = mDir.filePath(QStringLiteral("link"));
    ASSERT_TRUE(QFile::link(mDir.filePath(QStringLiteral("elsewhere")), tLink));
    LogFile(tLink, 2).write(QStringLiteral("x"));
    EXPECT_FALSE(QFile::exists(mDir.filePath(QStringLiteral("elsewhere"))));
}

TEST_F(LogFileTest, IsClosedInChildPrograms)
{
    LogFile tLog(mPath, 2);
    tLog.write(QStringLiteral("x"));
    EXPECT_NE(std::system("ls -l /proc/self/fd | grep -q rkm.log"), 0);
}
