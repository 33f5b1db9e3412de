#include "ClientTest.h"

// rkm on a terminal at the password prompt.
TEST_F(ClientTest, APasswordThatIsTypedIsNotShown)
{
    const struct
    {
        QByteArray mTyped;
        const char* mPassword;
    } tCases[] = {
        {"geheim ü\n", "geheim ü"},
        {"\x04", ""},
        {"half\x03whole\n", nullptr}, // an interrupt takes effect after the line
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mTyped);
        ScriptedService tService(mInstallation.socketPath());
        if (tCase.mPassword == nullptr) {
            tService.ignore("updateDefaultServer");
        }
        const std::unique_ptr<Program> tProgram =
            mInstallation.start(Words("update-settings --password"), Program::Console::Terminal);
        ASSERT_TRUE(tProgram->waitForOutput("Server password: "));
        for (int i = 0; i < 4000 && tProgram->echoes(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ASSERT_FALSE(tProgram->echoes());
        tProgram->write(tCase.mTyped);
        const Program::Result tResult = tProgram->wait();
        EXPECT_EQ(tResult.mOut, "Server password: " + (tCase.mPassword == nullptr
                                                           ? QByteArray("Failed to update default server\n")
                                                           : sApplied));
        EXPECT_TRUE(tResult.mEchoes);
        EXPECT_EQ(tResult.mStatus, tCase.mPassword == nullptr ? 1 : 0);
        if (tCase.mPassword != nullptr) {
            EXPECT_EQ(tService.calls().filter(q("updateDefaultServer")).value(0).section(u'"', 3, 3),
                      q(tCase.mPassword));
        }
    }
}

// The service may belong to a user who must not control it.
TEST_F(ClientTest, ATerminalGetsNoControlCharactersOfTheService)
{
    mService.answer("getKdmlDataDirectory", R"("/a\u001b[2J\u009bm")");
    const Program::Result tShown = mInstallation.start({"show-settings"}, Program::Console::Terminal)->wait();
    EXPECT_TRUE(tShown.mOut.contains("/a [2J m")) << tShown.mOut;
    EXPECT_FALSE(tShown.mOut.contains('\x1b')) << tShown.mOut;
    EXPECT_TRUE(mInstallation.run({"show-settings"}).mOut.contains("/a\x1b[2J")) << "a file gets all";
}

// Each line is written when its call returns, not only at the end of the program.
TEST_F(ClientTest, LinesComeOutOneByOne)
{
    mService.ignore("getKdmlDataDirectory");
    const std::unique_ptr<Program> tProgram = mInstallation.start({"show-settings"});
    EXPECT_TRUE(tProgram->waitForOutput("\nProxy: proxy.example.org:3128 (username=paul)\n"));
}

TEST_F(ClientTest, AConsoleThatTakesNothingChangesNothing)
{
    Program tShell(q("/bin/sh"),
                   {"-c",
                    "\"$0\" update-settings --data-dir=x >/dev/full 2>&1 && \"$0\" list-servers >&- 2>&- <&-",
                    mInstallation.path("bin/rkm").toUtf8()},
                   mInstallation.environment());
    EXPECT_EQ(tShell.wait().mStatus, 0);
    EXPECT_TRUE(mService.calls().contains(q("getServerList")));
}
