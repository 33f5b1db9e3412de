#include "Rig.h"
#include "Test.h"

#include "mail/MailQueue.h"

namespace tarn::vkservice::mail {

namespace {

class MachineMailsTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mRig.address(q("admin@example.org"), true);
        mRig.start();
    }

    int sent() { return static_cast<int>(mRig.mPost.take().size()); }

    Rig mRig;
};

TEST_F(MachineMailsTest, ARunIsToldOnceAndAFailureOnceAsLongAsItLasts)
{
    const std::tuple<ResultCode, int, const char*> tRuns[] = {
        // result, packages, null: no mail
        {ResultSuccess, 2, "updates installed"},
        {ResultSuccess, 0, nullptr},
        {ResultUnreachable, 0, nullptr},
        {ResultAborted, 1, "updates installed"},
        {ResultVerificationFailed, 0, "update failed"},
        {ResultVerificationFailed, 0, nullptr},
        {ResultNoSpace, 0, "update failed"},
        {ResultManualIntervention, 0, "an update needs you"},
        {ResultManualIntervention, 0, nullptr},
        {ResultSuccess, 0, nullptr},
        {ResultManualIntervention, 0, "an update needs you"},
    };
    int tNumber = 0;
    for (const auto& [tResult, tPackages, tSubject] : tRuns) {
        SCOPED_TRACE(++tNumber);
        for (int tTwice = 0; tTwice < 2; ++tTwice) {
            mRig.finish(someRun(QString::number(tNumber), tResult, tPackages));
            mRig.restart();
        }
        QStringList tExpected;
        if (tSubject != nullptr) {
            tExpected.append(q("lab-pc-3: ") + q(tSubject));
        }
        EXPECT_EQ(mRig.mPost.takeSubjects(), tExpected);
    }
}

TEST_F(MachineMailsTest, EachKindCanBeSwitchedOff)
{
    using Settings = vkcore::MonitoringSettings;
    for (const auto tSwitch :
         {&Settings::setEventMailsEnabled, &Settings::setEventMailOnUpdate,
          &Settings::setEventMailOnManualIntervention, &Settings::setEventMailOnOverdue}) {
        Rig tRig;
        tRig.address(q("admin@example.org"), true);
        (tRig.mSettings.*tSwitch)(false);
        tRig.start();
        tRig.finish(someRun(q("1"), ResultSuccess, 1));
        tRig.finish(someRun(q("2"), ResultManualIntervention));
        tRig.passDays(8);
        EXPECT_EQ(tRig.mPost.take().size(), tSwitch == &Settings::setEventMailsEnabled ? 0 : 2);
    }
}

TEST_F(MachineMailsTest, EachPackageThatBecomesDamagedIsToldOnce)
{
    const std::pair<const char*, bool> tReports[] = {
        {"", false}, {"a", true}, {"a", false}, {"a b", true}, {"b", false}, {"", false}, {"a", true},
    };
    int tNumber = 0;
    for (const auto& [tNames, tIsNews] : tReports) {
        SCOPED_TRACE(++tNumber);
        const QStringList tFolders = q(tNames).split(u' ', Qt::SkipEmptyParts);
        for (int tTwice = 0; tTwice < 2; ++tTwice) {
            DamageReport tReport{tFolders, {}};
            for (const QString& tFolder : tFolders) {
                tReport.mPackages.append({tFolder, q("1.0"), q("damaged"), q("bin/x has other content")});
            }
            mRig.mMailer->onDamageKnown(tReport);
            mRig.settle();
            mRig.restart();
        }
        EXPECT_EQ(mRig.mPost.takeSubjects(),
                  tIsNews ? QStringList{q("lab-pc-3: installed files are damaged")} : QStringList());
    }
    mRig.mSettings.setEventMailOnManualIntervention(false);
    mRig.set();
    mRig.mMailer->onDamageKnown({{q("c")}, {}});
    mRig.settle();
    EXPECT_EQ(sent(), 0);
}

// Beside runs: a restart afterwards tells no run again.
TEST_F(MachineMailsTest, APersonIsCalledForWhatIsNoRun)
{
    mRig.finish(someRun(q("1"), ResultSuccess));
    mRig.mPost.take();
    for (const bool tWanted : {true, false}) {
        mRig.mSettings.setEventMailOnManualIntervention(tWanted);
        mRig.set();
        mRig.mMailer->onPersonNeeded({.mRunId = {},
                                      .mResult = ResultManualIntervention,
                                      .mText = q("It waits."),
                                      .mEnd = {},
                                      .mPackages = {}});
        mRig.finish(someRun(q("1"), ResultSuccess));
        EXPECT_EQ(mRig.mPost.takeSubjects(),
                  tWanted ? QStringList{q("lab-pc-3: an update needs you")} : QStringList());
    }
}

TEST_F(MachineMailsTest, OverdueOnceForEachTimeWithoutSuccess)
{
    mRig.mSettings.setUpdateOverduePeriod(3);
    mRig.mStatus.mLastSuccess = {}; // never yet
    mRig.set();
    for (int i = 0; i < 2; ++i) {
        mRig.passDays(2);
        mRig.restart();
        EXPECT_EQ(sent(), 0);
        mRig.passDays(1);
        EXPECT_EQ(mRig.mPost.takeSubjects(), QStringList{q("lab-pc-3: update overdue")});
        mRig.passDays(10);
        mRig.restart();
        mRig.passDays(-60); // a clock that jumps back and forth
        mRig.passDays(60);
        EXPECT_EQ(sent(), 0);
        mRig.mStatus.mLastSuccess = mRig.mNow;
    }
    mRig.mSettings.setUpdateOverduePeriod(2147483647);
    mRig.set();
    mRig.passDays(36500);
    EXPECT_EQ(sent(), 0);
}

TEST_F(MachineMailsTest, OverdueAlsoWhenTheClockWasSetBack)
{
    for (const bool tNever : {false, true}) {
        Rig tRig;
        tRig.address(q("admin@example.org"), true);
        if (tNever) {
            tRig.mStatus.mLastSuccess = {};
        }
        tRig.start();
        tRig.passDays(-365);
        tRig.passDays(6);
        tRig.restart();
        tRig.pass(365 * 24 * 60 * 60); // right for a moment
        tRig.passDays(-365);
        tRig.passDays(6);
        EXPECT_EQ(tRig.mPost.takeSubjects(), QStringList());
        tRig.passDays(1);
        const QList<Mail> tMails = tRig.mPost.take();
        ASSERT_EQ(tMails.size(), 1);
        EXPECT_EQ(tMails.first().mText.contains(q("Check the clock")), !tNever);
        tRig.passDays(400);
        EXPECT_EQ(tRig.mPost.takeSubjects(), QStringList()) << "once";
    }
}

TEST_F(MachineMailsTest, SummaryByPeriod)
{
    mRig.mSettings.setEventMailsEnabled(false);
    mRig.mSettings.setSummarizedMailsEnabled(true);
    mRig.mSettings.setSummarizedMailPeriod(7);
    mRig.mStatus.mInstalled = {{q("Editor"), q("1.0"), {}, {}}};
    mRig.set();
    mRig.pass(0);
    const QList<Mail> tFirst = mRig.mPost.take();
    ASSERT_EQ(tFirst.size(), 1);
    EXPECT_TRUE(tFirst.first().mText.contains(q("* Editor 1.0\n")));
    EXPECT_EQ(mRig.mSummaries, QList<QDateTime>{mRig.mNow});

    mRig.pass(7 * 24 * 60 * 60 - 1);
    mRig.restart(); // the date does not depend on what the settings say after a restart
    mRig.pass(0);
    EXPECT_EQ(sent(), 0);
    mRig.pass(1);
    EXPECT_EQ(sent(), 1);
    mRig.passDays(-365); // a clock that had been wrong must not silence summaries for a year
    EXPECT_EQ(sent(), 1);
}

TEST_F(MachineMailsTest, SummaryOnChangeOnly)
{
    mRig.mSettings.setEventMailsEnabled(false);
    mRig.mSettings.setSummarizedMailsEnabled(true);
    mRig.mSettings.setSummarizedMailsOnChangeOnly(true);
    mRig.mSettings.setSummarizedMailPeriod(2);
    mRig.mSettings.setUpdateOverduePeriod(1000);
    mRig.mStatus.mInstalled = {{q("Editor"), q("1.0"), {}, {}}, {q("Viewer"), q("1.0"), {}, {}}};
    mRig.set();
    MachineStatus& tStatus = mRig.mStatus;
    const std::tuple<const char*, std::function<void()>, int, int> tSteps[] = {
        {"the first one", [] {}, 0, 1},
        {"neither times nor the order of packages are a change",
         [&] {
             tStatus.mLastRun = mRig.mNow.addDays(1);
             std::swap(tStatus.mInstalled[0], tStatus.mInstalled[1]);
         },
         10, 0},
        {"a change when the period has passed", [&] { tStatus.mInstalled[0].mVersion = q("1.1"); }, 0, 1},
        {"one before", [&] { tStatus.mLastResult = ResultInstallFailed; }, 1, 0},
        {"goes out later", [] {}, 1, 1},
        {"getting overdue is a change", [] {}, 1000, 1},
    };
    for (const auto& [tWhat, tChange, tDays, tSent] : tSteps) {
        tChange();
        mRig.passDays(tDays);
        EXPECT_EQ(sent(), tSent) << tWhat;
    }
}

TEST_F(MachineMailsTest, RetriesWithGrowingPausesAndGivesUpInTheEnd)
{
    mRig.mPost.setOutcome(SendResult::Outcome::ServerFailed);
    mRig.finish(someRun(q("1"), ResultSuccess, 1));
    const QString tId = mRig.mPost.take().value(0).mMessageId;
    for (int i = 1; i < MailQueue::sMaxAttempts; ++i) {
        mRig.pass(MailQueue::pauseSeconds(i) - 1);
        EXPECT_EQ(sent(), 0) << i;
        mRig.pass(1);
        EXPECT_EQ(mRig.mPost.take().value(0).mMessageId, tId) << i;
        EXPECT_GE(MailQueue::pauseSeconds(i + 1), MailQueue::pauseSeconds(i));
    }
    EXPECT_TRUE(mRig.warned(q("Given up after 35 attempts: mail about an update to admin@example.org")));
    EXPECT_EQ(mRig.queued(), 0);
}

TEST_F(MachineMailsTest, WhatWaitsIsTriedAgainWhenTheClockOrTheServerChangesUnlessItsAddressIsGone)
{
    const std::function<void()> tChanges[] = {
        [this] { mRig.passDays(-1000); },
        [this] {
            mRig.mSmtp.mUrl = q("smtp://other");
            mRig.mMailer->setSmtpSettings(mRig.mSmtp);
        },
        [this] {
            mRig.mSettings.setNotificationEmailAddresses({});
            mRig.set();
            mRig.pass(60);
        },
    };
    int tLeft = std::size(tChanges);
    for (const auto& tChange : tChanges) {
        mRig.mPost.setOutcome(SendResult::Outcome::ServerFailed);
        mRig.finish(someRun(QString::number(tLeft), ResultSuccess, 1));
        mRig.mPost.take();
        mRig.mPost.setOutcome(SendResult::Outcome::Sent);
        mRig.mMailer->setSmtpSettings(mRig.mSmtp); // the same
        mRig.settle();
        EXPECT_EQ(sent(), 0);
        tChange();
        mRig.settle();
        EXPECT_EQ(sent(), --tLeft > 0 ? 1 : 0) << tLeft;
        EXPECT_EQ(mRig.queued(), 0);
    }
    EXPECT_TRUE(mRig.warned(q("removed from the settings")));
}

TEST_F(MachineMailsTest, OneAddressDoesNotHoldUpTheOthers)
{
    mRig.address(q("second@example.org"), true);
    mRig.set();
    mRig.mPost.mBadRecipient = q("admin@example.org");
    using Outcome = SendResult::Outcome;
    for (const Outcome tOutcome : {Outcome::Refused, Outcome::Deferred, Outcome::ServerFailed}) {
        SCOPED_TRACE(static_cast<int>(tOutcome));
        mRig.mPost.mBadOutcome = tOutcome;
        mRig.finish(someRun(QString::number(static_cast<int>(tOutcome)), ResultSuccess, 1));
        mRig.pass(60);
        const QList<Mail> tMails = mRig.mPost.take();
        EXPECT_TRUE(std::any_of(tMails.begin(), tMails.end(), [](const Mail& pMail) {
            return pMail.mRecipient == q("second@example.org");
        }));
        EXPECT_EQ(mRig.queued(), tOutcome == Outcome::Refused ? 0 : 1);
        mRig.mPost.mBadOutcome = Outcome::Sent;
        mRig.pass(MailQueue::pauseSeconds(3));
        EXPECT_EQ(mRig.queued(), 0);
        mRig.mPost.take();
    }
}

TEST_F(MachineMailsTest, AFullDiskLosesNoMail)
{
    mRig.finish(someRun(q("0"), ResultSuccess, 1));
    EXPECT_EQ(sent(), 1);
    RunReport tRun = someRun(q("1"), ResultSuccess, 1);
    tRun.mPackages[0].mReport = QString(2000, u'x').replace(7, 1, u'\n');
    for (int i = 0; i < 150; ++i) {
        tRun.mPackages.append(tRun.mPackages[0]);
    }
    mRig.mStatus.mInstalled = tRun.mPackages;
    mRig.mSettings.setEventMailOnOverdue(false);
    mRig.mSettings.setSummarizedMailsEnabled(true);
    mRig.set();
    // Less than the current size: SQLite uses the current size as the limit, so the database can't grow.
    ASSERT_TRUE(mRig.mDatabase.execute("PRAGMA max_page_count = 1"));
    mRig.finish(tRun);
    for (int i = 0; i < 3; ++i) {
        mRig.passDays(7);
    }
    EXPECT_EQ(sent(), 0);
    for (const char* tWhat : {"The mail about an update", "A mail about the machine"}) {
        const QString tLine = q(tWhat) + q(" can't be queued: database or disk is full");
        EXPECT_EQ(mRig.mWarnings.filter(tLine).size(), 1) << mRig.mWarnings.join(u'\n');
    }
    ASSERT_TRUE(mRig.mDatabase.execute("PRAGMA max_page_count = 1000000"));
    mRig.pass(60);
    EXPECT_EQ(mRig.mPost.takeSubjects().join(u' ').toStdString(),
              "lab-pc-3: updates installed lab-pc-3: status of updates");
}

TEST_F(MachineMailsTest, AMemoryThatCantBeReadTellsNothingTwice)
{
    mRig.finish(someRun(q("1"), ResultSuccess, 1));
    EXPECT_EQ(sent(), 1);
    ASSERT_TRUE(mRig.mDatabase.execute(
        "ALTER TABLE mail_memory RENAME TO real;"
        "CREATE VIEW mail_memory AS SELECT name, json('damaged') AS value FROM real;"
        "CREATE TRIGGER written INSTEAD OF INSERT ON mail_memory BEGIN SELECT 1; END;"
        "CREATE TRIGGER forgotten INSTEAD OF DELETE ON mail_memory BEGIN SELECT 1; END"));
    mRig.finish(someRun(q("1"), ResultSuccess, 1));
    ASSERT_TRUE(mRig.mDatabase.execute("DROP VIEW mail_memory; ALTER TABLE real RENAME TO mail_memory"));
    mRig.pass(60);
    EXPECT_EQ(sent(), 0);
}

TEST_F(MachineMailsTest, AMailThatCantBeTakenOffTheQueueIsNotSentTwice)
{
    mRig.mMailer->onRunFinished(someRun(q("1"), ResultSuccess, 1));
    ASSERT_TRUE(mRig.mDatabase.execute("PRAGMA query_only = 1"));
    mRig.settle();
    for (int i = 0; i < 5; ++i) {
        mRig.pass(60 * 60);
    }
    EXPECT_EQ(sent(), 1);
    ASSERT_TRUE(mRig.mDatabase.execute("PRAGMA query_only = 0"));
    mRig.pass(60);
    EXPECT_EQ(sent(), 0);
    EXPECT_EQ(mRig.queued(), 0);
}

} // namespace

} // namespace tarn::vkservice::mail
