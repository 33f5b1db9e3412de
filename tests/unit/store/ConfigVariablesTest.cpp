#include "StoreTest.h"

#include "control/KnownVariables.h"
#include "store/ConfigVariables.h"

using namespace tarn::vkservice::store;

namespace {

class ConfigVariablesTest : public StoreTest
{
protected:
    ConfigVariablesTest()
    {
        mVariables.addRule(wholeNumberRule(q("number"), 5, 1, 9));
        mVariables.addRule(yesNoRule(q("flag"), false));
        mVariables.addRule(pathRule(q("path"), QString()));
        mVariables.addRule(textRule(q("text"), QString()));
        mVariables.setConfiguration([this](const QString& pKey) { return mConfiguration.value(pKey); });
    }

    bool set(const char* pName, const QString& pValue)
    {
        const tarn::Failure tFailure = mVariables.set(q(pName), pValue);
        mReason = tFailure.mText;
        return !tFailure;
    }
    std::string value(const char* pName) { return mVariables.value(q(pName))->toStdString(); }

    // Like a version with other rules.
    void storeUnchecked(const char* pName, const char* pValue)
    {
        ConfigVariables tUnchecked(mStore.database());
        ASSERT_FALSE(tUnchecked.set(q(pName), q(pValue)));
    }

    QHash<QString, QString> mConfiguration;
    ConfigVariables mVariables{mStore.database()};
    QString mReason;
};

} // namespace

TEST_F(ConfigVariablesTest, KnownOnesAreChecked)
{
    const std::tuple<const char*, QStringList, QStringList> tCases[] = {
        {"number", {q("9")}, {q("10"), q("0"), q("3.5"), q("99999999999999999999")}},
        {"flag", {q("yes")}, {q("maybe")}},
        {"path", {q("/some/where")}, {q("some/where")}},
        {"text", {q("one line")}, {q("two\nlines")}},
        {"other", {q("l1\nl2\t\"%1\" \\ \u00e4\u6a5f"), QString(1000 * 1000, u'x')}, {}},
        {"", {}, {q("value")}},
    };
    for (const auto& [tName, tGood, tBad] : tCases) {
        for (const QString& tValue : tBad + tGood) {
            SCOPED_TRACE(std::string(tName) + " = " + tValue.toStdString());
            const bool tOk = tGood.contains(tValue);
            EXPECT_EQ(set(tName, tValue), tOk);
            EXPECT_EQ(mReason.isEmpty(), tOk);
            EXPECT_TRUE(!tOk || value(tName) == tValue.toStdString());
        }
    }
}

TEST_F(ConfigVariablesTest, ValueThenConfigurationThenRule)
{
    EXPECT_EQ(mVariables.number(q("number")), 5);
    mConfiguration.insert(q("service.number"), q("7"));
    EXPECT_EQ(mVariables.number(q("number")), 7);
    ASSERT_TRUE(set("number", q("2")));
    EXPECT_EQ(mVariables.number(q("number")), 2);
    ASSERT_TRUE(set("number", QString()));
    EXPECT_EQ(mVariables.number(q("number")), 7) << "an empty value takes it back";

    mConfiguration.insert(q("service.flag"), q("true"));
    EXPECT_TRUE(mVariables.flag(q("flag")));
    EXPECT_TRUE(mVariables.complaints().isEmpty());
    mConfiguration.insert(q("service.number"), q("much"));
    EXPECT_EQ(mVariables.number(q("number")), 5) << "a wrong value of the configuration is none";
    EXPECT_TRUE(mVariables.complaints().value(0).contains(q("service.number")));

    mVariables.addRule(tarn::vkservice::store::certificatesRule(q("caFile")));
    mConfiguration.insert(q("service.caFile"), q("ca.pem"));
    EXPECT_EQ(mVariables.text(q("caFile")), q("ca.pem"))
        << "no other certificates than those that were meant";
}

// The readers of configured and of stored values accept the same values.
TEST_F(ConfigVariablesTest, TheMailServerIsReadByTheSameRules)
{
    using StartTls = tarn::vkservice::mail::SmtpSettings::StartTls;
    tarn::vkservice::control::addKnownVariables(mVariables, q("/etc/vk"));
    for (const char* tLine : {"IFOFFERED Yes 600", "sometimes maybe 601"}) { // valid and invalid
        for (const bool tStored : {false, true}) {
            SCOPED_TRACE(tLine);
            mConfiguration.clear();
            const QByteArrayList tWords = QByteArray(tLine).split(' ');
            for (const auto& [tName, tValue] : {std::pair("mail.startTls", tWords[0]),
                                                {"mail.allowPlaintext", tWords[1]},
                                                {"mail.timeout", tWords[2]}}) {
                if (tStored) {
                    storeUnchecked(tName, tValue.constData());
                } else {
                    mConfiguration.insert(q("service.") + q(tName), q(tValue));
                }
            }
            const bool tRight = tWords[2] == "600";
            const auto tSmtp = *tarn::vkservice::control::smtpSettings(mVariables);
            EXPECT_EQ(tSmtp.mStartTls, tRight ? StartTls::IfOffered : StartTls::Required);
            EXPECT_EQ(tSmtp.mAllowPlaintext, tRight);
            EXPECT_EQ(tSmtp.mTimeoutSeconds, tRight ? 600 : 60);
            for (const char* tName : {"mail.startTls", "mail.allowPlaintext", "mail.timeout"}) {
                EXPECT_TRUE(set(tName, QString())) << mReason;
            }
        }
    }
}

TEST_F(ConfigVariablesTest, WhatCantBeReadIsNotTakenForUnset)
{
    tarn::vkservice::control::addKnownVariables(mVariables, q("/etc/vk"));
    bool tAllRead = true;
    mVariables.text(q("path"), &tAllRead);
    EXPECT_TRUE(tAllRead && tarn::vkservice::control::smtpSettings(mVariables));
    ASSERT_TRUE(mStore.database().execute("DROP TABLE variables"));
    mVariables.flag(q("flag"), &tAllRead);
    EXPECT_FALSE(tAllRead || tarn::vkservice::control::smtpSettings(mVariables));
    EXPECT_FALSE(set("text", q("any")));
}

TEST_F(ConfigVariablesTest, MistypedOnesAreRefusedAndCanBeRemoved)
{
    tarn::vkservice::control::addKnownVariables(mVariables, q("/etc/vk"));
    for (const char* tName :
         {"update.supressed", "mail.Url", "install.", "schedule.jitter ", "service.update.caFile"}) {
        EXPECT_FALSE(set(tName, q("yes"))) << tName;
        EXPECT_TRUE(mReason.contains(q(tName))) << mReason;
        EXPECT_FALSE(set(tName, QString())) << tName;
    }
    for (const char* tName : {"updates.x", "Update.suppressed", "update", "site.update.x"}) {
        EXPECT_TRUE(set(tName, q("yes"))) << mReason;
    }
    // A value that an earlier version accepted.
    storeUnchecked("update.supressed", "yes");
    EXPECT_EQ(value("update.supressed"), "yes");
    ASSERT_EQ(mVariables.complaints().size(), 1);
    EXPECT_TRUE(set("update.supressed", QString())) << mReason;
    EXPECT_TRUE(mVariables.complaints().isEmpty());
}
