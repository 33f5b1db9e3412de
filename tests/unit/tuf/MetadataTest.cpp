// Malformed metadata must be refused and must not crash the client.
#include "Test.h"
#include "TestRepository.h"

#include "tuf/Metadata.h"

#include <limits>

using namespace tarn::tuf;
using tarn::Failure;

namespace {

Failure parse(const QString& pType, const QByteArray& pFile)
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

// Sets the value at "a/b/c", or removes it if undefined; numbers are positions in arrays.
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
    const QJsonValue tNone(QJsonValue::Undefined);
    const QJsonArray tTwice{q("a"), q("a")};
    const QJsonObject tSignature{{q("keyid"), q("a")}, {q("sig"), q("00")}};
    const QJsonObject tTarget{{q("length"), 1}, {q("hashes"), QJsonObject{{q("sha256"), QString(64, u'0')}}}};
    const QList<QJsonValue> tNoHashes{q(""),
                                      q("../") + QString(61, u'a'),
                                      QString(63, u'a'),
                                      QString(66, u'a'),
                                      QString(64, u'A'),
                                      QString(64, u'g'),
                                      QString(64, u'\0'),
                                      QString(64, QChar(0xff11))};
    const QByteArray tLongTarget = "signed/targets/" + QByteArray(4097, 'x');
    const auto tFirstRole =
        QJsonDocument::fromJson(mFiles[q("targets")])[q("signed")][q("delegations")][q("roles")][0];
    const std::tuple<const char*, const char*, QList<QJsonValue>> sCases[] = {
        {"root", "signatures", {tNone, QJsonArray{1}, QJsonArray{tSignature, tSignature}}},
        {"root", "signatures/0/sig", {tNone, QJsonValue::Null}},
        {"root", "signed", {tNone, QJsonArray()}},
        {"root", "signed/_type", {tNone, q("targets")}},
        {"root", "signed/spec_version", {tNone, 1, q("2.0.0"), q("1"), q("1.x"), q("1.0.0.0")}},
        {"root", "signed/version", {tNone, 0, 1.5, 1e19, q("1"), std::numeric_limits<qint64>::max()}},
        {"root", "signed/expires", {tNone, q("2030-13-01T00:00:00Z"), q("2030-01-01T00:00:00+01:00")}},
        {"root", "signed/consistent_snapshot", {q("true")}},
        {"root", "signed/keys", {tNone, QJsonObject{{q("a"), 1}}}},
        {"root", "signed/keys/x", {QJsonObject{{q("keytype"), q("x")}, {q("scheme"), q("x")}}}},
        {"root", "signed/roles/snapshot", {tNone, QJsonObject()}},
        {"root", "signed/roles/root/threshold", {tNone, 0, 0.5}},
        {"root", "signed/roles/root/keyids", {tNone, QJsonArray{1}, tTwice}},
        {"timestamp", "signed/meta", {tNone, QJsonObject()}},
        {"timestamp", "signed/meta/snapshot.json/version", {tNone, 0, q("1")}},
        {"timestamp", "signed/meta/snapshot.json/length", {0, q("1"), 1e30}},
        {"timestamp", "signed/meta/snapshot.json/hashes", {QJsonObject(), QJsonObject{{q("md5"), q("00")}}}},
        {"timestamp", "signed/meta/snapshot.json/hashes/sha256", tNoHashes},
        {"snapshot", "signed/meta/targets.json", {tNone, QJsonObject()}},
        {"snapshot", "signed/meta/other.json", {QJsonObject()}},
        {"targets", "signed/targets", {tNone, QJsonArray()}},
        {"targets", "signed/targets/", {tTarget}},
        {"targets", tLongTarget.constData(), {tTarget}},
        {"targets", "signed/targets/hello/length", {tNone, -1, 1.5, q("1")}},
        {"targets", "signed/targets/hello/hashes", {tNone, QJsonObject(), QJsonObject{{q("x"), q("0")}}}},
        {"targets", "signed/targets/hello/hashes/sha256", tNoHashes},
        {"targets", "signed/targets/hello/hashes/sha512", {QString(64, u'a'), QString(127, u'a')}},
        {"targets", "signed/targets/hello/custom", {QJsonArray(), 1.5}},
        {"targets", "signed/delegations", {QJsonObject()}},
        {"targets", "signed/delegations/keys", {tNone}},
        {"targets", "signed/delegations/roles", {tNone, QJsonArray{1}}},
        {"targets", "signed/delegations/roles/0/name", {tNone, q(""), q("root"), QString(300, u'x')}},
        {"targets", "signed/delegations/roles/0/terminating", {tNone, 1}},
        {"targets", "signed/delegations/roles/0/threshold", {0}},
        {"targets",
         "signed/delegations/roles/0/paths",
         {tNone, QJsonArray{1}, QJsonArray{QString(4097, u'*')}}},
        {"targets", "signed/delegations/roles/0/path_hash_prefixes", {QJsonArray{q("00")}}}, // beside paths
        {"targets", "signed/delegations/roles/1", {tFirstRole}},
        {"targets", "signed/delegations/succinct_roles", {QJsonObject()}}, // beside roles
    };
    for (const auto& [tRole, tPath, tBadValues] : sCases) {
        const QString tType = q(tRole);
        ASSERT_FALSE(parse(tType, mFiles[tType]));
        for (const QJsonValue& tBad : tBadValues) {
            const QByteArray tFile = with(tType, tPath, tBad);
            EXPECT_EQ(parse(tType, tFile).mKind, Failure::Kind::Untrusted) << tFile;
        }
    }
}

TEST_F(MetadataTest, WhatIsNotKnownIsPassedOver)
{
    const std::tuple<const char*, const char*, QJsonValue> sCases[] = {
        {"root", "more", 1},
        {"root", "signatures/0/sig", q("no hex")},
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
    };
    for (const auto& [tType, tPath, tValue] : sCases) {
        const Failure tFailure = parse(q(tType), with(q(tType), tPath, tValue));
        EXPECT_FALSE(tFailure) << tPath << ": " << tFailure.mText;
    }
}

TEST_F(MetadataTest, HasABoundForObjects)
{
    const QByteArray tDense = QByteArray("[0],").repeated(500'000) + "[0]";
    const Failure tFailure = parse(sTargetsRole, R"({"x":[)" + tDense + "]," + mFiles[sTargetsRole].mid(1));
    EXPECT_TRUE(tFailure.mText.contains(q("500000 objects"))) << tFailure.mText;
}

} // namespace
