#include "Test.h"
#include "tuf/CanonicalJson.h"
#include "tuf/PublicKey.h"
#include "tuf/SigningKey.h"

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

TEST(KeyTest, VerifiesWhatItSignedAndNothingElse)
{
    for (const QString& tType : SigningKey::types()) {
        SCOPED_TRACE(tType);
        QByteArray tIdentity;
        const SigningKey tKey = *SigningKey::generate(tType);
        QJsonObject tJson = tKey.publicJson();
        const PublicKey tPublic = keyOf(tJson);
        const QByteArray tSignature = tKey.sign("message");
        EXPECT_TRUE(tPublic.verify("message", tSignature, &tIdentity));
        EXPECT_FALSE(tPublic.verify("messagf", tSignature, &tIdentity));
        for (const QByteArray& tOther : {QByteArray(), tSignature.chopped(1), tSignature + '\0',
                                         SigningKey::generate(tType)->sign("message")}) {
            EXPECT_FALSE(tPublic.verify("message", tOther, &tIdentity));
        }
        // Read from its file, in whatever format, it is the same.
        const std::optional<SigningKey> tRead = SigningKey::fromPem(tKey.toPem());
        ASSERT_TRUE(tRead);
        EXPECT_EQ(tRead->id(), tKey.id());
        EXPECT_FALSE(SigningKey::fromPem(tKey.toPem().replace("PRIVATE", "PRIVTAE")));
        const QString tValue = tJson[q("keyval")][q("public")].toString();
        const bool tIsHex = tType == q("ed25519");
        tJson[q("keyval")] =
            QJsonObject{{q("public"), tIsHex ? tValue.toUpper() : q("A comment\n") + tValue}};
        QByteArray tSame;
        EXPECT_TRUE(keyOf(tJson).verify("x", tRead->sign("x"), &tSame));
        EXPECT_EQ(tSame, tIdentity);
        for (const auto& [tName, tScheme] : {std::pair("ed25519", "ed25519"),
                                             {"ecdsa", "ecdsa-sha2-nistp256"},
                                             {"ecdsa", "ecdsa-sha2-nistp384"},
                                             {"rsa", "rsassa-pss-sha256"},
                                             {"rsa", "ecdsa-sha2-nistp256"}}) {
            const bool tOwn = tJson[q("keytype")] == q(tName) && tJson[q("scheme")] == q(tScheme);
            EXPECT_EQ(PublicKey(q(tName), q(tScheme), tValue).verify("x", tKey.sign("x"), &tIdentity), tOwn)
                << tScheme;
        }
    }
}

} // namespace
