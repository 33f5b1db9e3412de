#include "LogFile.h"
#include "Test.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QSet>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using tarn::vkcore::LogFile;

namespace {

class LogFileTest : public ::testing::Test
{
protected:
    // The log with all timestamps replaced.
    std::string text() const
    {
        static const QRegularExpression sStamp(q(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} \[\d+\] )"));
        return q(readFile(mPath)).replace(sStamp, q("> ")).toStdString();
    }

    QTemporaryDir mDir;
    QString mPath = mDir.filePath(q("log/rkm.log"));
};

} // namespace

TEST_F(LogFileTest, LineFormat)
{
    const struct
    {
        QString mText;
        const char* mLine;
    } tCases[] = {
        {QString(), "> \n"},
        {q("\nblank line before"), "\n> blank line before\n"},
        {q("two\nlines"), "> two\n    lines\n"},
        {q("a\x1b[2Jb\rc\td"), "> a\\x1b[2Jb\\x0dc\td\n"},
        {q("Gr\u00fc\u00dfe"), "> Gr\u00fc\u00dfe\n"},
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
                tLog.write(q("process %1 line %2 end").arg(tProcess).arg(tLine));
            }
            ::_exit(0);
        }
    }
    for (int tProcess = 0; tProcess < sProcesses; ++tProcess) {
        ASSERT_GT(::wait(nullptr), 0);
    }
    static const QRegularExpression sLine(q(R"(^[-0-9:. ]{24}\[\d+\] (process \d line \d+ end)$)"));
    QSet<QString> tFound;
    const QFileInfoList tFiles = QFileInfo(mPath).dir().entryInfoList(QDir::Files);
    EXPECT_GT(tFiles.size(), 3);
    for (const QFileInfo& tFile : tFiles) {
        for (const QByteArray& tLine : readFile(tFile.filePath()).trimmed().split('\n')) {
            const auto tMatch = sLine.match(q(tLine));
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
            tLog.write(q("line %1 of some length, so that two fill a file").arg(tLine));
        }
        EXPECT_EQ(QFileInfo(mPath).dir().entryList(QDir::Files).size(), tKeep + 1);
        EXPECT_NE(text().find("line 19"), std::string::npos);
    }
}

TEST_F(LogFileTest, FollowsAFileThatWasMovedAway)
{
    LogFile tLog(mPath, 1);
    tLog.write(q("one"));
    ASSERT_TRUE(QFile::rename(mPath, mPath + q(".old")));
    tLog.write(q("two"));
    EXPECT_EQ(text(), "> two\n");
}

TEST_F(LogFileTest, PlacesThatCanNotBeWrittenDoNoHarm)
{
    LogFile(q("/proc/no/such.log"), 2).write(q("x"));
    LogFile(mDir.path(), 2).write(q("x"));
    const QString tPipe = mDir.filePath(q("pipe"));
    ASSERT_EQ(::mkfifo(QFile::encodeName(tPipe).constData(), 0600), 0);
    LogFile(tPipe, 2).write(q("must not hang"));
    const QString tLink = mDir.filePath(q("link"));
    ASSERT_TRUE(QFile::link(mDir.filePath(q("elsewhere")), tLink));
    LogFile(tLink, 2).write(q("x"));
    EXPECT_FALSE(QFile::exists(mDir.filePath(q("elsewhere"))));
}

TEST_F(LogFileTest, IsClosedInChildPrograms)
{
    LogFile tLog(mPath, 2);
    tLog.write(q("x"));
    EXPECT_NE(std::system("ls -l /proc/self/fd | grep -q rkm.log"), 0);
}
