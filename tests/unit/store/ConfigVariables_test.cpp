#include "StoreTest.h"

#include "store/ConfigVariables.h"

using namespace tarn::vkservice::store;

namespace {

class ConfigVariablesTest : public StoreTest
{
protected:
    ConfigVariablesTest()
    {
        mVariables.addRule(wholeNumberRule(QStringLiteral("number"), 5, 1, 9));
        mVariables.addRule(yesNoRule(QStringLiteral("flag"), false));
        mVariables.addRule(pathRule(QStringLiteral("path"), QString()));
        mVariables.addRule(textRule(QStringLiteral("text"), QString()));
        mVariables.setConfiguration([this](const QString& pKey) { return mConfiguration.value(pKey); });
    }

    bool set(const char* pName, const QString& pValue)
    {
        mReason.clear();
        return mVariables.set(QLatin1String(pName), pValue, &mReason);
    }
    std::string value(const char* pName) { return mVariables.value(QLatin1String(pName))->toStdString(); }

    QHash<QString, QString> mConfiguration;
    ConfigVariables mVariables{mStore.database()};
    QString mReason;
};

} // namespace

TEST_F(ConfigVariablesTest, UnknownOnesComeBackAsTheyWere)
{
    const QString tValues[] = {QString(), QStringLiteral("a:b"),
                               QStringLiteral("l1\nl2\t\"%1\" \\ \u00e4\u6a5f"), QString(1000 * 1000, u'x')};
    for (const QString& tValue : tValues) {
        ASSERT_TRUE(set("other", tValue)) << mReason.toStdString();
        reopen();
        EXPECT_EQ(value("other"), tValue.toStdString());
    }
    EXPECT_TRUE(mVariables.value(QStringLiteral("nothing"))->isNull());
}

TEST_F(ConfigVariablesTest, KnownOnesAreChecked)
{
    const struct
    {
        const char* mName;
        QString mValue;
        bool mOk;
    } tCases[] = {
        {"number", QStringLiteral("9"), true},
        {"number", QStringLiteral("10"), false},
        {"number", QStringLiteral("0"), false},
        {"number", QStringLiteral("3.5"), false},
        {"number", QStringLiteral("99999999999999999999"), false},
        {"flag", QStringLiteral("yes"), true},
        {"flag", QStringLiteral("maybe"), false},
        {"path", QStringLiteral("/some/where"), true},
        {"path", QStringLiteral("some/where"), false},
        {"text", QStringLiteral("one line"), true},
        {"text", QStringLiteral("two\nlines"), false},
        {"", QStringLiteral("value"), false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(std::string(tCase.mName) + " = " + tCase.mValue.toStdString());
        EXPECT_EQ(set(tCase.mName, tCase.mValue), tCase.mOk);
        EXPECT_EQ(mReason.isEmpty(), tCase.mOk);
        if (tCase.mOk) {
            EXPECT_EQ(value(tCase.mName), tCase.mValue.toStdString());
        }
    }
}

TEST_F(ConfigVariablesTest, ValueThenConfigurationThenRule)
{
    EXPECT_EQ(mVariables.number(QStringLiteral("number")), 5);
    mConfiguration.insert(QStringLiteral("service.number"), QStringLiteral("7"));
    EXPECT_EQ(mVariables.number(QStringLiteral("number")), 7);
    ASSERT_TRUE(set("number", QStringLiteral("2")));
    EXPECT_EQ(mVariables.number(QStringLiteral("number")), 2);
    ASSERT_TRUE(set("number", QString()));
    EXPECT_EQ(mVariables.number(QStringLiteral("number")), 7) << "an empty value takes it back";

    mConfiguration.insert(QStringLiteral("service.flag"), QStringLiteral("true"));
    EXPECT_TRUE(mVariables.flag(QStringLiteral("flag")));
    EXPECT_TRUE(mVariables.complaints().isEmpty());
    mConfiguration.insert(QStringLiteral("service.number"), QStringLiteral("much"));
    EXPECT_EQ(mVariables.number(QStringLiteral("number")), 5) << "a wrong value of the configuration is none";
    ASSERT_EQ(mVariables.complaints().size(), 1);
    EXPECT_TRUE(mVariables.complaints().first().contains(QStringLiteral("service.number")));
}
