#include "Test.h"
#include "tuf/CanonicalJson.h"
#include "tuf/PublicKey.h"
#include "tuf/SigningKey.h"

#include <QtCore/QMap>

using namespace tarn::tuf;

namespace {

TEST(CanonicalJson, Table)
{
    const std::pair<const char*, const char*> sCases[] = {
        {R"( { "b" : [ 1 , true , null ] , "a" : { } } )", R"({"a":{},"b":[1,true,null]})"},
        {R"(["\u0041\n\t\"\\\/\u00e4"])", "[\"A\n\t\\\"\\\\/\xc3\xa4\"]"},
        {R"([0, -1, 9223372036854775807, -9223372036854775808, 1e3])",
         "[0,-1,9223372036854775807,-9223372036854775808,1000]"},
        // Sorted by code point: U+FB01 before U+1F4E6, although the latter begins with a lower surrogate.
        {"{\"\xf0\x9f\x93\xa6\":1,\"\xef\xac\x81\":2,\"a\":3,\"B\":4}",
         "{\"B\":4,\"a\":3,\"\xef\xac\x81\":2,\"\xf0\x9f\x93\xa6\":1}"},
        {R"([1.5])", nullptr},
        {R"([9223372036854775808])", nullptr},
        {R"([1e400])", nullptr},
        {R"(["\ud800"])", nullptr},
    };
    for (const auto& [tText, tCanonical] : sCases) {
        SCOPED_TRACE(tText);
        const QJsonDocument tDocument = QJsonDocument::fromJson(tText);
        const QJsonValue tValue =
            tDocument.isArray() ? QJsonValue(tDocument.array()) : QJsonValue(tDocument.object());
        QByteArray tBytes;
        const bool tHasForm = canonicalJson(tValue, &tBytes);
        ASSERT_EQ(tHasForm && !tDocument.isNull(), tCanonical != nullptr);
        if (tCanonical != nullptr) {
            EXPECT_EQ(tBytes.replace('\0', '0'), QByteArray(tCanonical, tBytes.size()).replace('\0', '0'));
        }
    }
}

PublicKey keyOf(const QJsonObject& pJson)
{
    return {pJson[q("keytype")].toString(), pJson[q("scheme")].toString(),
            pJson[q("keyval")][q("public")].toString()};
}

class KeyTest : public testing::TestWithParam<QString>
{
protected:
    SigningKey mKey = keyNumber(0);

    // Two of each kind are made once, for RSA takes its time.
    static const SigningKey& keyNumber(int pNumber)
    {
        static QMap<QString, QList<SigningKey>> sKeys;
        QList<SigningKey>& tKeys = sKeys[GetParam()];
        while (tKeys.size() <= pNumber) {
            tKeys.append(*SigningKey::generate(GetParam()));
        }
        return tKeys[pNumber];
    }

    QByteArray mIdentity;
};

TEST_P(KeyTest, VerifiesWhatItSignedAndNothingElse)
{
    const PublicKey tPublic = keyOf(mKey.publicJson());
    const QByteArray tSignature = mKey.sign("message");
    EXPECT_TRUE(tPublic.verify("message", tSignature, &mIdentity));
    EXPECT_FALSE(tPublic.verify("messagf", tSignature, &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", QByteArray(), &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", tSignature.chopped(1), &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", tSignature + '\0', &mIdentity));
    EXPECT_FALSE(keyOf(keyNumber(1).publicJson()).verify("message", tSignature, &mIdentity));
}

TEST_P(KeyTest, SurvivesItsFileAndHasOneIdentityHoweverItIsWritten)
{
    const std::optional<SigningKey> tRead = SigningKey::fromPem(mKey.toPem());
    ASSERT_TRUE(tRead);
    EXPECT_EQ(tRead->id(), mKey.id());
    EXPECT_FALSE(SigningKey::fromPem(mKey.toPem().replace("PRIVATE", "PRIVTAE")));
    QJsonObject tJson = mKey.publicJson();
    ASSERT_TRUE(keyOf(tJson).verify("x", tRead->sign("x"), &mIdentity));
    const QString tValue = tJson[q("keyval")][q("public")].toString();
    const QString tOther =
        GetParam() == q("ed25519") ? tValue.toUpper() : q("A comment\n") + tValue + q("\n\n");
    ASSERT_NE(tOther, tValue);
    tJson[q("keyval")] = QJsonObject{{q("public"), tOther}};
    QByteArray tIdentity;
    EXPECT_TRUE(keyOf(tJson).verify("x", mKey.sign("x"), &tIdentity));
    EXPECT_EQ(tIdentity, mIdentity);
}

TEST_P(KeyTest, IsOfNoUseUnderAnotherScheme)
{
    const QJsonObject tJson = mKey.publicJson();
    const QString tValue = tJson[q("keyval")][q("public")].toString();
    const char* const sPairs[][2] = {{"ed25519", "ed25519"},
                                     {"ecdsa", "ecdsa-sha2-nistp256"},
                                     {"ecdsa", "ecdsa-sha2-nistp384"},
                                     {"rsa", "rsassa-pss-sha256"},
                                     {"rsa", "ecdsa-sha2-nistp256"}};
    for (const auto& tPair : sPairs) {
        const bool tOwn = tJson[q("keytype")] == q(tPair[0]) && tJson[q("scheme")] == q(tPair[1]);
        const PublicKey tKey(q(tPair[0]), q(tPair[1]), tValue);
        EXPECT_EQ(tKey.verify("x", mKey.sign("x"), &mIdentity), tOwn) << tPair[1];
    }
}

INSTANTIATE_TEST_SUITE_P(Tuf, KeyTest, testing::ValuesIn(SigningKey::types()),
                         [](const auto& pInfo) { return QString(pInfo.param).remove(u'-').toStdString(); });

} // namespace
