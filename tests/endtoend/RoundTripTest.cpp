#include "Machine.h"
#include "Test.h"

// The next command shows what one has set, even if the service was killed in between.

namespace {

struct RoundTrip
{
    const char* mName;
    QList<QByteArray> mSet;
    QList<QByteArray> mShow;
    QByteArray mExpected; // a part of what is shown
};

const RoundTrip sRoundTrips[] = {
    {"DefaultServer",
     {"update-settings", "--server=https://updates.example/a b", "--user=ann", "--password=secret"},
     {"show-settings", "--server"},
     "Default server: https://updates.example/a%20b (username=ann)\n"},
    {"Proxy",
     {"update-settings", "--proxy-mode=manual", "--proxy=proxy.example:3128", "--proxy-user=bob",
      "--proxy-password=secret"},
     {"show-settings", "--proxy"},
     "Proxy: proxy.example:3128 (username=bob)\n"},
    {"Variable",
     {"update-settings", "--config-var=site.note:a: 100% \xc3\xa4"},
     {"show-settings", "--config-var=site.note"},
     "site.note: a: 100% \xc3\xa4\n"},
    {"Schedule",
     {"update-schedule-settings", "--mode=automatic", "--interval=3d", "--next-update=2999-12-31 01:02:03"},
     {"show-schedule-settings"},
     "Automatic installation mode: Automatic updates\nUpdate period: 3 day(s)\n"
     "Next scheduled check: 2999-12-31 01:02:03\n"},
    {"Monitoring",
     {"update-monitoring-settings", "--event-mails", "--send-on-overdue", "--summary-interval=30",
      "--overdue-tolerance=4", "--computer-name=desk 7", "--addresses=A@example.org, b@example.org"},
     {"show-monitoring-settings"},
     "An update is considered overdue after 4 day(s)\n\nComputer name: desk 7\n\n"
     "Notification e-mail addresses:\n  A@example.org (not verified)\n  b@example.org (not verified)\n"},
    {"NewServer",
     {"add-server", "--name=mirror", "--address=/srv/mirror", "--user=eve", "--password=secret", "--enable"},
     {"list-servers"},
     "2) mirror\n    Address: /srv/mirror\n    Username: eve\n    Enabled: yes\n    Default server: no\n\n"},
};

} // namespace

TEST(Settings, OutliveAKilledService)
{
    Machine tMachine;
    for (const RoundTrip& tRoundTrip : sRoundTrips) {
        SCOPED_TRACE(tRoundTrip.mName);
        const auto tService = tMachine.startService();
        const Program::Result tSet = tMachine.rkm(tRoundTrip.mSet);
        ASSERT_EQ(tSet.mStatus, 0) << tSet.mErr;
        tService->signal(SIGKILL);
        tService->wait();

        const Program::Result tShown = tMachine.rkm(tRoundTrip.mShow);
        EXPECT_EQ(tShown.mStatus, 0) << tShown.mErr;
        EXPECT_TRUE(tShown.mOut.contains(tRoundTrip.mExpected)) << tShown.mOut;
        EXPECT_FALSE(tShown.mOut.contains("secret"));
    }
    EXPECT_FALSE(tMachine.installation().readFile("log/vkservice.log").contains("secret"));
}

// Each starts a worker, or finds that of another command.
TEST(Settings, CommandsAtOnceDoNotEndEachOthersWorkers)
{
    Machine tMachine;
    std::vector<std::unique_ptr<Program>> tCommands;
    for (int i = 0; i < 24; ++i) {
        tCommands.push_back(tMachine.installation().start({"show-settings"}));
        if (i % 6 == 5) {
            for (const auto& tCommand : std::exchange(tCommands, {})) {
                const Program::Result tResult = tCommand->wait();
                EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr;
            }
        }
    }
}
