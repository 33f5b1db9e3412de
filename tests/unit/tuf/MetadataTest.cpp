// Metadata that no honest publisher makes must be refused, and must not bring the client down.
#include "Test.h"
#include "TestRepository.h"

#include "tuf/Metadata.h"

#include <limits>
#include <random>

using namespace tarn::tuf;

namespace {

Error parse(const QString& pType, const QByteArray& pFile)
{
    Root tRoot;
    Timestamp tTimestamp;
    Snapshot tSnapshot;
    Targets tTargets;
    return pType == q("root")        ? parseRoot(pFile, &tRoot)
           : pType == q("timestamp") ? parseTimestamp(pFile, &tTimestamp)
           : pType == q("snapshot")  ? parseSnapshot(pFile, &tSnapshot)
                                     : parseTargets(pFile, pType, &tTargets);
}

// Sets or, for undefined, removes the value at "a/b/c"; numbers are positions in arrays.
QJsonValue changed(const QJsonValue& pIn, QStringList pPath, const QJsonValue& pTo)
{
    if (pPath.isEmpty()) {
        return pTo;
    }
    const QString tStep = pPath.takeFirst();
    if (pIn.isArray()) {
        QJsonArray tArray = pIn.toArray();
        if (tStep.toInt() == tArray.size()) {
            tArray.append(QJsonValue::Null);
        }
        tArray[tStep.toInt()] = changed(tArray[tStep.toInt()], pPath, pTo);
        return tArray;
    }
    QJsonObject tObject = pIn.toObject();
    const QJsonValue tNew = changed(tObject[tStep], pPath, pTo);
    if (tNew.isUndefined()) {
        tObject.remove(tStep);
    } else {
        tObject[tStep] = tNew;
    }
    return tObject;
}

class MetadataTest : public testing::Test
{
protected:
    MetadataTest()
    {
        mRepository.delegate(q("targets"), q("role"), {q("*")});
        mRepository.publishTargets();
        for (const QString& tName : mRepository.mFiles.keys()) {
            mFiles[tName.section(u'.', -2, -2)] = mRepository.mFiles[tName];
        }
    }

    QByteArray with(const QString& pType, const char* pPath, const QJsonValue& pValue) const
    {
        const QJsonObject tFile = QJsonDocument::fromJson(mFiles[pType]).object();
        return QJsonDocument(changed(tFile, q(pPath).split(u'/'), pValue).toObject()).toJson();
    }

    TestRepository mRepository;
    QMap<QString, QByteArray> mFiles; // type -> file
};

TEST_F(MetadataTest, EveryMemberIsChecked)
{
    const QJsonArray tTwice{q("a"), q("a")};
    const QJsonObject tSignature{{q("keyid"), q("a")}, {q("sig"), q("00")}};
    const qint64 tLast = std::numeric_limits<qint64>::max();
    const QList<QJsonValue> tNoHashes{q(""),
                                      q("../../../etc/passwd"),
                                      q("../") + QString(61, u'a'),
                                      QString(63, u'a'),
                                      QString(66, u'a'),
                                      QString(64, u'A'),
                                      QString(64, u'g'),
                                      QString(64, u'\0'),
                                      QString(64, QChar(0xff11))};
    const QByteArray tLongTarget = "signed/targets/" + QByteArray(4097, 'x');
    const struct
    {
        const char* mType;
        const char* mPath;
        QList<QJsonValue> mBad;
    } sCases[] = {
        {"root",
         "signatures",
         {QJsonValue::Undefined, 1, QJsonObject(), QJsonArray{1}, QJsonArray{tSignature, tSignature}}},
        {"root", "signatures/0/keyid", {QJsonValue::Undefined, 1}},
        {"root", "signatures/0/sig", {QJsonValue::Undefined, QJsonValue::Null}},
        {"root", "signed", {QJsonValue::Undefined, QJsonArray(), q("x")}},
        {"root", "signed/_type", {QJsonValue::Undefined, q("targets"), 1}},
        {"root",
         "signed/spec_version",
         {QJsonValue::Undefined, 1, q("2.0.0"), q("1"), q("1.x"), q("1.0.0.0"), q("")}},
        {"root", "signed/version", {QJsonValue::Undefined, 0, -1, 1.5, 1e19, q("1"), true, tLast}},
        {"root",
         "signed/expires",
         {QJsonValue::Undefined, 1, q(""), q("2030-01-01"), q("2030-13-01T00:00:00Z"),
          q("2030-01-01T00:00:00+01:00"), q("2030-01-01T00:00:00"), q("2030-02-30T00:00:00Z")}},
        {"root", "signed/consistent_snapshot", {1, q("true"), QJsonValue::Null}},
        {"root", "signed/keys", {QJsonValue::Undefined, QJsonArray(), QJsonObject{{q("a"), 1}}}},
        {"root", "signed/keys/x", {QJsonObject{{q("keytype"), q("x")}, {q("scheme"), q("x")}}}},
        {"root", "signed/roles", {QJsonValue::Undefined, QJsonArray()}},
        {"root", "signed/roles/snapshot", {QJsonValue::Undefined, 1, QJsonObject()}},
        {"root", "signed/roles/root/threshold", {QJsonValue::Undefined, 0, -1, 0.5, q("1")}},
        {"root", "signed/roles/root/keyids", {QJsonValue::Undefined, q("a"), QJsonArray{1}, tTwice}},
        {"timestamp", "signed/meta", {QJsonValue::Undefined, QJsonObject(), 1}},
        {"timestamp", "signed/meta/snapshot.json/version", {QJsonValue::Undefined, 0, q("1")}},
        {"timestamp", "signed/meta/snapshot.json/length", {0, -1, q("1"), 1e30}},
        {"timestamp",
         "signed/meta/snapshot.json/hashes",
         {QJsonObject(), 1, QJsonObject{{q("md5"), q("00")}}, QJsonObject{{q("sha256"), 1}}}},
        {"timestamp", "signed/meta/snapshot.json/hashes/sha256", tNoHashes},
        {"snapshot", "signed/meta/targets.json", {QJsonValue::Undefined, 1, QJsonObject()}},
        {"snapshot", "signed/meta/other.json", {1, QJsonObject()}},
        {"targets", "signed/targets", {QJsonValue::Undefined, QJsonArray()}},
        {"targets",
         "signed/targets/",
         {QJsonObject{{q("length"), 1}, {q("hashes"), QJsonObject{{q("sha256"), QString(64, u'0')}}}}}},
        {"targets",
         tLongTarget.constData(),
         {QJsonObject{{q("length"), 1}, {q("hashes"), QJsonObject{{q("sha256"), QString(64, u'0')}}}}}},
        {"targets", "signed/targets/hello", {1, QJsonObject()}},
        {"targets", "signed/targets/hello/length", {QJsonValue::Undefined, -1, 1.5, q("1")}},
        {"targets",
         "signed/targets/hello/hashes",
         {QJsonValue::Undefined, QJsonObject(), QJsonObject{{q("x"), q("0")}}}},
        {"targets", "signed/targets/hello/hashes/sha256", tNoHashes},
        {"targets", "signed/targets/hello/hashes/sha512", {QString(64, u'a'), QString(127, u'a')}},
        {"targets", "signed/targets/hello/custom", {1, QJsonArray(), 1.5}},
        {"targets", "signed/delegations", {1, QJsonObject()}},
        {"targets", "signed/delegations/keys", {QJsonValue::Undefined, 1}},
        {"targets", "signed/delegations/roles", {QJsonValue::Undefined, 1, QJsonArray{1}}},
        {"targets",
         "signed/delegations/roles/0/name",
         {QJsonValue::Undefined, 1, q(""), q("root"), q("timestamp"), q("snapshot"), q("targets"),
          QString(300, u'x')}},
        {"targets", "signed/delegations/roles/0/terminating", {QJsonValue::Undefined, 1}},
        {"targets", "signed/delegations/roles/0/threshold", {0}},
        {"targets",
         "signed/delegations/roles/0/paths",
         {QJsonValue::Undefined, q("*"), QJsonArray{1}, QJsonArray{QString(4097, u'*')}}},
        {"targets", "signed/delegations/roles/0/path_hash_prefixes", {QJsonArray{q("00")}}}, // beside paths
        {"targets",
         "signed/delegations/roles/1",
         {QJsonDocument::fromJson(mFiles[q("targets")])[q("signed")][q("delegations")][q("roles")][0]}},
        {"targets", "signed/delegations/succinct_roles", {QJsonObject()}}, // beside roles
    };
    for (const auto& tCase : sCases) {
        const QString tType = q(tCase.mType);
        ASSERT_FALSE(parse(tType, mFiles[tType]));
        for (const QJsonValue& tBad : tCase.mBad) {
            const QByteArray tFile = with(tType, tCase.mPath, tBad);
            EXPECT_EQ(parse(tType, tFile).mKind, ErrorKind::Untrusted) << tFile;
        }
    }
}

TEST_F(MetadataTest, WhatIsNotKnownIsPassedOver)
{
    const struct
    {
        const char* mType;
        const char* mPath;
        QJsonValue mValue;
    } sCases[] = {
        {"root", "more", 1},
        {"root", "signatures/0/sig", q("no hex")},
        {"root", "signed/more", QJsonObject()},
        {"root", "signed/spec_version", q("1.99")},
        {"root", "signed/consistent_snapshot", QJsonValue::Undefined},
        {"root", "signed/roles/mirrors", QJsonObject{{q("keyids"), QJsonArray()}, {q("threshold"), 1}}},
        {"root", "signed/keys/x",
         QJsonObject{
             {q("keytype"), q("new")}, {q("scheme"), q("new")}, {q("keyval"), QJsonObject{{q("v"), 1}}}}},
        {"timestamp", "signed/meta/other.json", 1},
        {"timestamp", "signed/meta/snapshot.json/hashes", QJsonValue::Undefined},
        {"snapshot", "signed/meta/no-metadata", QJsonObject{{q("version"), 1}}},
        {"targets", "signed/targets/hello/hashes/new", q("../../x")},
        {"targets", "signed/targets/hello/hashes/sha512", QString(128, u'0')},
        {"targets", "signed/delegations", QJsonValue::Undefined},
    };
    for (const auto& tCase : sCases) {
        const Error tError = parse(q(tCase.mType), with(q(tCase.mType), tCase.mPath, tCase.mValue));
        EXPECT_FALSE(tError) << tCase.mPath << ": " << tError.mText;
    }
}

TEST_F(MetadataTest, DamageOfAnyKindIsOnlyAnError)
{
    std::minstd_rand tRandom(1);
    for (const QString& tType : mFiles.keys()) {
        const QByteArray& tGood = mFiles[tType];
        for (qsizetype i = 0; i < tGood.size(); ++i) {
            EXPECT_EQ(parse(tType, tGood.left(i)).mKind, ErrorKind::Untrusted);
            QByteArray tBad = tGood;
            tBad[i] = static_cast<char>(tRandom());
            parse(tType, tBad);
        }
        const QByteArray tDense = QByteArray("[0],").repeated(500'000) + "[0]";
        const Error tError = parse(tType, R"({"x":[)" + tDense + "]," + tGood.mid(1));
        EXPECT_TRUE(tError.mText.contains(q("500000 objects"))) << tError.mText;
        for (const QByteArray& tFile :
             {QByteArray(1000000, '['), QByteArray("{\"signed\":").repeated(100000), QByteArray("\0\xff", 2),
              QByteArray("[]"), QByteArray("null"), tGood + tGood}) {
            EXPECT_EQ(parse(tType, tFile).mKind, ErrorKind::Untrusted);
        }
    }
}

} // namespace
