#include "ClientTest.h"

#include "sqlite/InstallLogStore.h"

using tarn::vkcore::InstallLogStore;
using tarn::vkcore::LangString;
using tarn::vkcore::LogRecord;

namespace {

class InstallLogTest : public testing::Test
{
protected:
    InstallLogTest() : mNow(QDateTime::currentDateTime()) { QDir().mkpath(mInstallation.path("state")); }

    QString logPath() const { return mInstallation.path(q("state/") + InstallLogStore::fileName()); }

    // One entry a name, made at that time.
    void add(const QDateTime& pDate, const QByteArray& pName, const QByteArray& pStatus = "ok",
             const QMap<QString, QString>& pReport = {}, const QString& pParent = QString())
    {
        ASSERT_TRUE(mStore.openForWriting(logPath()));
        LogRecord tRecord;
        tRecord.mPackage = q(pName);
        tRecord.mParent = pParent;
        tRecord.mVersion = q("1.2.3.0");
        tRecord.mStatus = q(pStatus);
        tRecord.mVersionDate = QDateTime(QDate(2024, 3, 7), QTime(1, 2, 3));
        tRecord.mTitle = LangString({{q("en"), q(pName)}});
        tRecord.mReport = LangString(pReport);
        ASSERT_TRUE(mStore.append(q(pName), pDate, {tRecord})) << qPrintable(mStore.errorText());
    }

    QByteArray block(const QDateTime& pDate, const QByteArray& pName, const QByteArray& pStatus = "OK",
                     const QByteArray& pReport = {}) const
    {
        return "Name: " + pName + "\nDate: " + pDate.toString(q("yyyy-MM-dd hh:mm:ss")).toUtf8() +
               "\nVersion: 1.2.3 (2024-03-07)\nStatus: " + pStatus + '\n' +
               (pReport.isEmpty() ? QByteArray() : "Install report: " + pReport + '\n') + '\n';
    }

    void expect(const Words& pArguments, const QByteArray& pOut, const QByteArray& pErr = {}) const
    {
        SCOPED_TRACE(pArguments.join(' '));
        expectResult(mInstallation.run(pArguments), pOut, pErr, pErr.isEmpty() ? 0 : 1);
    }

    Installation mInstallation;
    InstallLogStore mStore;
    QDateTime mNow;
};

} // namespace

TEST_F(InstallLogTest, ShowsThePeriodThatIsAskedFor)
{
    const QDateTime tHour = mNow.addSecs(-3000);
    const QDateTime tDay = mNow.addSecs(-20 * 3600);
    const QDateTime tMonth = mNow.addDays(-20);
    const QDateTime tOld = mNow.addDays(-40);
    add(tOld, "old");
    add(tMonth, "month");
    add(tDay, "day");
    add(tHour, "hour");
    const QByteArray tLastHour = block(tHour, "hour");
    const QByteArray tLastDay = block(tDay, "day") + tLastHour;
    const QByteArray tLastMonth = block(tMonth, "month") + tLastDay;
    const QByteArray tAll = block(tOld, "old") + tLastMonth;
    expect("install-log", tLastMonth);
    expect("install-log --interval=0d", "");
    expect("install-log -i1h --socket=/nowhere", tLastHour);
    expect("install-log -i1d", tLastDay);
    expect("install-log -i 1m", tLastMonth);
    expect("install-log -i1h --interval=6w", tAll);
    expect("install-log -i2147483647m", tAll);
    expect("install-log -i596523h", tAll); // 68 years
    expect("install-log -i596524h", "");   // wraps around, into the future
    for (const char* tInterval : {"3x", "d", "-1d", "", "1d\n", "1D", "%1"}) {
        expect({"install-log", QByteArray("--interval=") + tInterval}, "",
               QByteArray("Invalid interval '") + tInterval + "'\n");
    }
}

TEST_F(InstallLogTest, ShowsWhatAnEntrySays)
{
    const QDateTime tTime = mNow.addDays(-1);
    const QString tEn = q("en");
    add(tTime, "a %1", "child_packages_updated", {{tEn, q("all\nwell %1")}});
    add(tTime, "b", "warning", {{q("de"), q("nur deutsch")}});
    add(tTime, "c", "error", {{tEn, QString()}});
    add(tTime, "d", "odd %2");
    add(tTime, "e", "OK", {}, q("d"));
    const QByteArray tTop = block(tTime, "a %1", "OK", "all\nwell %1") +
                            block(tTime, "b", "Warning", "nur deutsch") + block(tTime, "c", "Error") +
                            block(tTime, "d", "odd %2");
    expect("install-log", tTop);
    expect("install-log --all -i2d", tTop + block(tTime, "e", "OK"));
}

// In a mount namespace of its own the machine's state is a folder of this test.
TEST_F(InstallLogTest, AUserWithoutALogOfTheirOwnGetsThatOfTheMachine)
{
    const QByteArray tMachine = mInstallation.path("machine").toUtf8();
    const auto tInside = [&](const QByteArray& pCommand) {
        const QByteArray tScript = "mount --bind " + tMachine + " /var/lib && exec " + pCommand;
        return Program(q("/usr/bin/unshare"), {"-mr", "sh", "-c", tScript}, mInstallation.environment())
            .wait();
    };
    QDir().mkpath(q(tMachine));
    if (tInside("true").mStatus != 0) {
        GTEST_SKIP() << "needs a mount namespace";
    }
    const QByteArray tCommand = mInstallation.path("bin/rkm").toUtf8() + " install-log";
    add(mNow, "machine's");
    ASSERT_TRUE(QDir().rename(mInstallation.path("state"), q(tMachine) + q("/vkservice")));
    EXPECT_EQ(tInside(tCommand).mOut, block(mNow, "machine's"));
    QDir().mkpath(mInstallation.path("state"));
    add(mNow, "own");
    EXPECT_EQ(tInside(tCommand).mOut, block(mNow, "own"));
}

TEST_F(InstallLogTest, ALogThatIsMissingIsEmptyAndADamagedOneAFailure)
{
    expect("install-log", "");
    mInstallation.writeFile(q("state/") + InstallLogStore::fileName(), QByteArray(5000, 'x'));
    expect("install-log", "", "Could not get installation log.\n");
}
