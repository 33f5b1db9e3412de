#include "ClientTest.h"

#include <QtCore/QDeadlineTimer>

namespace {

// rkm on a terminal, at the prompt for a password.
class PromptTest : public ClientTest
{
protected:
    void SetUp() override
    {
        mProgram = mInstallation.start({"update-settings", "--password"}, Program::Console::Terminal);
        ASSERT_TRUE(mProgram->waitForOutput("Server password: "));
        const QDeadlineTimer tDeadline(20000);
        while (mProgram->echoes() && !tDeadline.hasExpired()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ASSERT_FALSE(mProgram->echoes());
    }

    QString sentPassword() const
    {
        // updateDefaultServer {"password":"...
        return mService.calls().filter(q("updateDefaultServer")).value(0).section(u'"', 3, 3);
    }

    std::unique_ptr<Program> mProgram;
};

} // namespace

TEST_F(PromptTest, NothingTypedIsShown)
{
    mProgram->write("geheim ü\n");
    const Program::Result tResult = mProgram->wait();
    EXPECT_EQ(tResult.mOut, "Server password: " + sApplied);
    EXPECT_TRUE(tResult.mEchoes);
    EXPECT_EQ(tResult.mStatus, 0);
    EXPECT_EQ(sentPassword(), q("geheim ü"));
}

TEST_F(PromptTest, EndOfInputIsAnEmptyPassword)
{
    mProgram->write("\x04");
    const Program::Result tResult = mProgram->wait();
    EXPECT_EQ(tResult.mOut, "Server password: " + sApplied);
    EXPECT_TRUE(tResult.mEchoes);
    EXPECT_TRUE(mService.calls().contains(
        q(R"(updateDefaultServer {"password":"","uri":"https://updates.example.org/kdml",)"
          R"("user":"anna"})")));
}

TEST_F(PromptTest, AnInterruptTakesEffectBehindTheLine)
{
    mService.ignore("updateDefaultServer");
    mProgram->write("half\x03");
    mProgram->write("whole\n");
    const Program::Result tResult = mProgram->wait();
    EXPECT_EQ(tResult.mOut, "Server password: Failed to update default server\n");
    EXPECT_TRUE(tResult.mEchoes);
    EXPECT_EQ(tResult.mStatus, 1);
}

// Each line is out when its call has returned, and not only at the end of the program.
TEST_F(ClientTest, LinesComeOutOneByOne)
{
    mService.ignore("getKdmlDataDirectory");
    const std::unique_ptr<Program> tProgram = mInstallation.start({"show-settings"});
    EXPECT_TRUE(tProgram->waitForOutput("\nProxy: proxy.example.org:3128 (username=paul)\n"));
}

TEST_F(ClientTest, AConsoleThatTakesNothingChangesNothing)
{
    const QString tRkm = mInstallation.path("bin/rkm");
    Program tShell(q("/bin/sh"),
                   {"-c",
                    "\"$0\" update-settings --data-dir=x >/dev/full 2>&1 && \"$0\" list-servers >&- 2>&- <&-",
                    tRkm.toUtf8()},
                   mInstallation.environment());
    EXPECT_EQ(tShell.wait().mStatus, 0);
    EXPECT_TRUE(mService.calls().contains(q("getServerList")));
}
