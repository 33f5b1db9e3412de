#include "Test.h"
#include "tuf/CanonicalJson.h"
#include "tuf/PublicKey.h"
#include "tuf/SigningKey.h"

#include <QtCore/QMap>

using namespace tarn::tuf;

namespace {

TEST(CanonicalJson, Table)
{
    const struct
    {
        const char* mText;
        const char* mCanonical; // null: has none
    } sCases[] = {
        {R"( { "b" : [ 1 , true , null ] , "a" : { } } )", R"({"a":{},"b":[1,true,null]})"},
        {R"(["\u0041\n\t\"\\\/\u00e4"])", "[\"A\n\t\\\"\\\\/\xc3\xa4\"]"},
        {R"([0, -1, 9223372036854775807, -9223372036854775808, 1e3])",
         "[0,-1,9223372036854775807,-9223372036854775808,1000]"},
        // Sorted by code point: U+FB01 before U+1F4E6, although the latter begins with a lower surrogate.
        {"{\"\xf0\x9f\x93\xa6\":1,\"\xef\xac\x81\":2,\"a\":3,\"B\":4}",
         "{\"B\":4,\"a\":3,\"\xef\xac\x81\":2,\"\xf0\x9f\x93\xa6\":1}"},
        {R"(["\u0001\u007f"])", "[\"\x01\x7f\"]"},
        {R"([1.5])", nullptr},
        {R"([9223372036854775808])", nullptr},
        {R"([1e400])", nullptr},
        {R"(["\ud800"])", nullptr},
        {R"({"\udc00":1})", nullptr},
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(tCase.mText);
        const QJsonDocument tDocument = QJsonDocument::fromJson(tCase.mText);
        const QJsonValue tValue =
            tDocument.isArray() ? QJsonValue(tDocument.array()) : QJsonValue(tDocument.object());
        QByteArray tBytes;
        const bool tHasForm = canonicalJson(tValue, &tBytes);
        ASSERT_EQ(tHasForm && !tDocument.isNull(), tCase.mCanonical != nullptr);
        if (tCase.mCanonical != nullptr) {
            EXPECT_EQ(tBytes.replace('\0', '0'),
                      QByteArray(tCase.mCanonical, tBytes.size()).replace('\0', '0'));
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
    EXPECT_FALSE(tPublic.verify(QByteArray(), tSignature, &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", QByteArray(), &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", tSignature.chopped(1), &mIdentity));
    EXPECT_FALSE(tPublic.verify("message", tSignature + '\0', &mIdentity));
    for (qsizetype i = 0; i < tSignature.size(); i += 7) {
        QByteArray tOther = tSignature;
        tOther[i] = static_cast<char>(tOther[i] ^ 1);
        EXPECT_FALSE(tPublic.verify("message", tOther, &mIdentity)) << i;
    }
    EXPECT_FALSE(keyOf(keyNumber(1).publicJson()).verify("message", tSignature, &mIdentity));
}

TEST_P(KeyTest, SurvivesItsFile)
{
    const std::optional<SigningKey> tRead = SigningKey::fromPem(mKey.toPem());
    ASSERT_TRUE(tRead);
    EXPECT_EQ(tRead->id(), mKey.id());
    EXPECT_TRUE(keyOf(mKey.publicJson()).verify("x", tRead->sign("x"), &mIdentity));
    EXPECT_FALSE(SigningKey::fromPem(mKey.toPem().replace("PRIVATE", "PRIVTAE")));
}

TEST_P(KeyTest, HasOneIdentityHoweverItIsWritten)
{
    const QByteArray tSignature = mKey.sign("x");
    QJsonObject tJson = mKey.publicJson();
    ASSERT_TRUE(keyOf(tJson).verify("x", tSignature, &mIdentity));
    const QString tValue = tJson[q("keyval")][q("public")].toString();
    const QString tOther =
        GetParam() == q("ed25519") ? tValue.toUpper() : q("A comment\n") + tValue + q("\n\n");
    ASSERT_NE(tOther, tValue);
    tJson[q("keyval")] = QJsonObject{{q("public"), tOther}};
    QByteArray tIdentity;
    EXPECT_TRUE(keyOf(tJson).verify("x", tSignature, &tIdentity));
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
                                     {"rsa", "ecdsa-sha2-nistp256"},
                                     {"none", "none"},
                                     {"", ""}};
    for (const auto& tPair : sPairs) {
        const bool tOwn = tJson[q("keytype")] == q(tPair[0]) && tJson[q("scheme")] == q(tPair[1]);
        const PublicKey tKey(q(tPair[0]), q(tPair[1]), tValue);
        EXPECT_EQ(tKey.verify("x", mKey.sign("x"), &mIdentity), tOwn) << tPair[1];
    }
}

INSTANTIATE_TEST_SUITE_P(Tuf, KeyTest, testing::ValuesIn(SigningKey::types()),
                         [](const auto& pInfo) { return QString(pInfo.param).remove(u'-').toStdString(); });

TEST(PublicKeyTest, BrokenKeysVerifyNothing)
{
    const QString tPem = q("-----BEGIN PUBLIC KEY-----\n%1\n-----END PUBLIC KEY-----\n");
    const struct
    {
        const char* mType;
        const char* mScheme;
        QString mValue;
    } sCases[] = {
        {"ed25519", "ed25519", q("00")},
        {"ed25519", "ed25519", QString(64, u'z')},
        {"ed25519", "ed25519", QString()},
        {"ecdsa", "ecdsa-sha2-nistp256", tPem.arg(q("AAAA"))},
        {"ecdsa", "ecdsa-sha2-nistp256", QString()},
        {"rsa", "rsassa-pss-sha256", tPem.arg(QString(100000, u'A'))},
        {"rsa", "rsassa-pss-sha256", q("-----BEGIN PUBLIC KEY-----")},
    };
    for (const auto& tCase : sCases) {
        QByteArray tIdentity;
        EXPECT_FALSE(PublicKey(q(tCase.mType), q(tCase.mScheme), tCase.mValue)
                         .verify("x", QByteArray(64, '\0'), &tIdentity));
    }
}

// Signatures that were made elsewhere: the second test of RFC 8032, and an RSA signature whose salt is as
// long as it can be, where ours has the length of the hash.
TEST(PublicKeyTest, TakesSignaturesOfOtherPrograms)
{
    QByteArray tIdentity;
    const PublicKey tEd25519(q("ed25519"), q("ed25519"),
                             q("3d4017c3e843895a92b70aa74d1b7ebc9c982ccf2ec4968cc0cd55f12af4660c"));
    EXPECT_TRUE(tEd25519.verify(
        "\x72",
        QByteArray::fromHex("92a009a9f0d4cab8720e820b5f642540a2b27b5416503f8fb3762223ebdb69da"
                            "085ac1e43e15996e458f3613d0f11d8c387b2eaeb4302aeeb00d291612bb0c00"),
        &tIdentity));
    const PublicKey tRsa(q("rsa"), q("rsassa-pss-sha256"),
                         q("-----BEGIN PUBLIC KEY-----\n"
                           "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEA3+qs1CI3IlvzRz6Qjdi2\n"
                           "tmTmqql+IHMKDZA56YblXRmbGBpYrYrQuuwZ1WoBiHzYw7XjQJFO0TCVWhAudN6n\n"
                           "UlAg1Oxeep0STWVmgk2ybYZMPR5lSp9oEnYLqa9GT0yLjKO+HkspamEKQ9BhBJQF\n"
                           "YYHbkAmG6V8e9plDjqQAOpFcHBMGUeBzsm+GV43F25Ua9z3zATGdpP8ZaY0Mnjkz\n"
                           "be8VHSA8NkOGpBNTgBiSr3t420ywEXqcczKbK+j2MCbYE7cI7Q31GkWbkVWYAj0c\n"
                           "oX1X7Oq+tYHm1Bb91t3MeJzP0v/d6M0GiNeaid0dqH3EwXlKokL8QdFu4khbnJpL\n"
                           "1QIDAQAB\n"
                           "-----END PUBLIC KEY-----\n"));
    EXPECT_TRUE(tRsa.verify(
        "message",
        QByteArray::fromHex("5f7849ee7a517cca3a88260dfc9944029db6a30643c3811d8e86ea5a15a6140847bdd5a34f3603c7"
                            "9506db989c03a0c963107d14cdd1b422a9cff0c7e4152b712ad06df1485253d2934aa3a09412f27e"
                            "540a7cee08fa150b294ea5aa9be9dfc8f8003960996d21b6d02cff062071d9d736110345067a6f5a"
                            "e09e6e3e3dae5657e783c668fd1fdb3ba123e0d5c9823855d84e6a996ba4334206ab7237277c1f0c"
                            "13d03bfbbbb749955e641a84b6f2ee525f50260073ba8568ed1c684a14e50a2a3f996035d068a834"
                            "3e5b5a6d539595637ac154234399dc053fdaa9bb8b39de50c45e0a7e887ca4a6f1016cb9e3611bed"
                            "a11081de2c8825faf110e0807210bf23"),
        &tIdentity));
}

} // namespace
