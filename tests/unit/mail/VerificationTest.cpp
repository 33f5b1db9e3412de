#include "Rig.h"
#include "Test.h"

#include "mail/Address.h"
#include "mail/Verification.h"

namespace tarn::vkservice::mail {

namespace {

const QString sAddress = q("Admin@example.org");

class VerificationTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        mRig.address(sAddress, false);
        mRig.start();
    }

    QString nextCode()
    {
        const QList<Mail> tMails = mRig.mPost.take();
        return tMails.size() == 1 ? codeIn(tMails.first().mText) : QString();
    }
    bool verify(const QString& pCode) { return !mRig.mMailer->verify(sAddress, pCode); }
    QString refusal(const QString& pCode) { return mRig.mMailer->verify(sAddress, pCode).mText; }

    Rig mRig;
};

TEST_F(VerificationTest, TheMailedCodeOpensTheAddress)
{
    mRig.finish(someRun(q("run 1"), ResultSuccess, 1));
    const QList<Mail> tMails = mRig.mPost.take();
    ASSERT_EQ(tMails.size(), 1) << "an address that is not verified got a mail about the machine";
    EXPECT_EQ(tMails.first().mRecipient, sAddress);
    const QString tCode = codeIn(tMails.first().mText);
    EXPECT_EQ(tCode.size(), 14);
    EXPECT_EQ(mRig.mMailer->verificationState(sAddress), q("not verified"));

    QString tTyped = u' ' + tCode.toLower();
    tTyped.remove(u'-');
    EXPECT_FALSE(mRig.mMailer->verify(sAddress.toLower(), tTyped));
    mRig.restart(); // killed before the settings were stored
    EXPECT_TRUE(verify(tCode));
    mRig.mSettings.setNotificationEmailAddresses(
        markVerified(mRig.mSettings.notificationEmailAddresses(), sAddress));
    mRig.set();
    EXPECT_EQ(mRig.mMailer->verificationState(sAddress), q("verified"));
    mRig.finish(someRun(q("run 2"), ResultSuccess, 1));
    EXPECT_EQ(mRig.mPost.takeSubjects(), QStringList{q("lab-pc-3: updates installed")});
}

TEST_F(VerificationTest, WrongCodesUseItUp)
{
    const QString tCode = nextCode();
    for (int i = 0; i < Verification::sMaxAttempts; ++i) {
        if (i == 2) {
            mRig.restart(); // does not give attempts back
        }
        EXPECT_FALSE(verify(q("2222-2222-2222")));
    }
    EXPECT_FALSE(verify(tCode));
    EXPECT_TRUE(refusal(tCode).contains(q("There is no code"))) << refusal(tCode);
}

TEST_F(VerificationTest, CodesBelongToTheirAddressAndTime)
{
    const QString tCode = nextCode();
    const QString tOther = q("other@example.org");
    mRig.address(tOther, false);
    mRig.set();
    EXPECT_TRUE(mRig.mMailer->verify(tOther, tCode));
    EXPECT_TRUE(mRig.mMailer->verify(q("stranger@example.org"), tCode));
    mRig.pass(Verification::sValidHours * 60 * 60);
    EXPECT_TRUE(refusal(tCode).contains(q("has expired")));
}

TEST_F(VerificationTest, SettingAnAddressAgainSendsNothingWhileItsCodeHolds)
{
    ASSERT_FALSE(nextCode().isEmpty());
    const vkcore::MonitoringEmailList tList = mRig.mSettings.notificationEmailAddresses();
    for (const vkcore::MonitoringEmailList& tNow : {tList, {}, tList}) {
        mRig.mSettings.setNotificationEmailAddresses(tNow);
        mRig.set();
        mRig.pass(60);
    }
    mRig.pass(Verification::sValidHours * 60 * 60);
    mRig.restart();
    EXPECT_TRUE(mRig.mPost.take().isEmpty()) << "a start alone sends no further code";
    mRig.set();
    EXPECT_TRUE(verify(nextCode()));
}

TEST_F(VerificationTest, ANewCodeCanBeAskedForWithinLimits)
{
    const QString tFirst = nextCode();
    EXPECT_FALSE(verify(QString())) << "too soon";
    mRig.pass(Verification::sMinSecondsBetweenCodes);
    EXPECT_TRUE(verify(QString()));
    mRig.settle();
    const QString tSecond = nextCode();
    EXPECT_FALSE(verify(tFirst));
    EXPECT_TRUE(verify(tSecond));

    for (int i = 0; i < 20; ++i) {
        mRig.pass(Verification::sMinSecondsBetweenCodes);
        verify(q(" "));
        mRig.settle();
    }
    EXPECT_EQ(mRig.mPost.take().size(), Verification::sMaxCodesPerDay - 2);
}

TEST_F(VerificationTest, AListOfManyAddressesIsWrittenToSlowly)
{
    mRig.mPost.take();
    for (int i = 0; i < 50; ++i) {
        mRig.address(q("a%1@example.org").arg(i), false);
    }
    mRig.set();
    EXPECT_EQ(mRig.mPost.take().size(), Verification::sMaxCodesPerHour - 1);
    mRig.pass(60 * 60);
    EXPECT_EQ(mRig.mPost.take().size(), 50 - Verification::sMaxCodesPerHour + 1)
        << "the rest follows by itself";
}

TEST_F(VerificationTest, TheDatabaseDoesNotTellTheCode)
{
    const QString tCode = nextCode();
    QString tBare = tCode;
    tBare.remove(u'-');
    vkcore::Statement tQuery(
        mRig.mDatabase, "SELECT count(*) FROM mail_verification WHERE instr(hash, ?1) OR instr(hash, ?2)");
    ASSERT_TRUE(tQuery.bind(1, tCode).bind(2, tBare).step());
    EXPECT_EQ(tQuery.integer(0), 0);
}

} // namespace

} // namespace tarn::vkservice::mail
