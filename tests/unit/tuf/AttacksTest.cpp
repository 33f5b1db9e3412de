// The attacks that the standard names. Each follows a good refresh, and must neither get through nor move the
// trusted state any further than what was rightly signed.
#include "ClientTest.h"

#include "tuf/Hashes.h"

#include <QtCore/QJsonArray>

#include <functional>

using namespace tarn::tuf;

namespace {

const QString sRootRole = QStringLiteral("root");
const QString sTargetsRole = QStringLiteral("targets");
const QString sSnapshotRole = QStringLiteral("snapshot");
const QString sTimestampRole = QStringLiteral("timestamp");
const QString sHello = QStringLiteral("hello");

struct Attack
{
    const char* mName;
    std::function<void(TestRepository& pRepository, QDateTime& pNow)> mDo;
    ErrorKind mExpected;
    const char* mRequests;
    // Versions that are stored in the end; before the attack 1, 2, 2, 2.
    int mRoot = 1;
    int mTimestamp = 2;
    int mSnapshot = 2;
    int mTargets = 2;
};

void PrintTo(const Attack& pAttack, std::ostream* pStream)
{
    *pStream << pAttack.mName;
}

const char* const sUpToTimestamp = "2.root.json, timestamp.json";
const char* const sUpToSnapshot = "2.root.json, timestamp.json, 3.snapshot.json";
const char* const sAll = "2.root.json, timestamp.json, 3.snapshot.json, 3.targets.json";

void replaceKey(TestRepository& pRepository, const QString& pRole)
{
    pRepository.mRoles[pRole].mKeys = {TestRepository::newKey()};
}

// Changes the content of what is served without its version.
void resign(TestRepository& pRepository, const QString& pRole, const QJsonObject& pSigned)
{
    pRepository.serve(pRole, pRepository.sign(pRole, pSigned));
}

void pad(TestRepository& pRepository, const char* pFile, qsizetype pLength)
{
    pRepository.mFiles[QLatin1String(pFile)].append(QByteArray(pLength, ' '));
}

const Attack sAttacks[] = {
    {"ArbitrarySoftwareWithoutAKey",
     [](auto& pRepository, auto&) {
         for (const QString& tRole : {sTargetsRole, sSnapshotRole, sTimestampRole}) {
             replaceKey(pRepository, tRole);
         }
         pRepository.publish();
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"ArbitrarySoftwareWithTheOnlineKeys",
     [](auto& pRepository, auto&) {
         replaceKey(pRepository, sTargetsRole);
         pRepository.publish();
     },
     ErrorKind::Untrusted, sAll, 1, 3, 3},
    {"RootOfAStranger",
     [](auto& pRepository, auto&) {
         replaceKey(pRepository, sRootRole);
         pRepository.publishRoot();
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"RootThatItsOwnKeysDidNotSign",
     [](auto& pRepository, auto&) {
         const QList<SigningKey> tOld = pRepository.mRoles[sRootRole].mKeys;
         replaceKey(pRepository, sRootRole);
         pRepository.publishRoot();
         pRepository.serve(sRootRole, signMetadata(pRepository.rootJson(), tOld));
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"RootOfAnotherVersion",
     [](auto& pRepository, auto&) {
         pRepository.mRoles[sRootRole].mVersion = 2;
         pRepository.publishRoot();
         pRepository.mFiles[QStringLiteral("2.root.json")] =
             pRepository.mFiles[QStringLiteral("3.root.json")];
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"EndlessRoot",
     [](auto& pRepository, auto&) {
         pRepository.publishRoot();
         pad(pRepository, "2.root.json", Limits().mRootLength);
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"EndlessTimestamp",
     [](auto& pRepository, auto&) {
         pRepository.publishTimestamp();
         pad(pRepository, "timestamp.json", Limits().mTimestampLength);
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"SnapshotLongerThanSigned",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pad(pRepository, "3.snapshot.json", 1);
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"SnapshotThatClaimsToBeEndless",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pad(pRepository, "3.snapshot.json", Limits().mSnapshotLength);
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 4},
    {"ExtraneousDependencies",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pRepository.mRoles[sTargetsRole].mTargets[QStringLiteral("more")] = "Comes along\n";
         resign(pRepository, sTargetsRole, pRepository.targetsJson(sTargetsRole));
     },
     ErrorKind::Untrusted, sAll, 1, 3, 3},
    {"FastForwardBeyondAllNumbers",
     [](auto& pRepository, auto&) {
         QJsonObject tSigned = pRepository.timestampJson();
         tSigned[QStringLiteral("version")] = 1e18;
         QByteArray tFile = pRepository.sign(sTimestampRole, tSigned);
         pRepository.serve(sTimestampRole, tFile.replace("1000000000000000000", "1000000000000000000000"));
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"FrozenTimestamp",
     [](auto& pRepository, auto& pNow) { pNow = pRepository.mRoles[sTimestampRole].mExpires; },
     ErrorKind::Expired, sUpToTimestamp},
    {"NewTimestampThatIsOld",
     [](auto& pRepository, auto& pNow) {
         pRepository.mRoles[sTimestampRole].mExpires = pNow;
         pRepository.publishTimestamp();
     },
     ErrorKind::Expired, sUpToTimestamp},
    {"FrozenSnapshot",
     [](auto& pRepository, auto& pNow) {
         pRepository.mRoles[sSnapshotRole].mExpires = pNow;
         pRepository.publish();
     },
     ErrorKind::Expired, sUpToSnapshot, 1, 3},
    {"FrozenTargets",
     [](auto& pRepository, auto& pNow) {
         pRepository.mRoles[sTargetsRole].mExpires = pNow;
         pRepository.publish();
     },
     ErrorKind::Expired, sAll, 1, 3, 3},
    {"FrozenRoot",
     [](auto& pRepository, auto& pNow) {
         pRepository.mRoles[sRootRole].mExpires = pNow;
         pRepository.publishRoot();
     },
     ErrorKind::Expired, "2.root.json, 3.root.json", 2},
    {"MirrorWithoutTheSnapshot",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pRepository.mFiles.remove(QStringLiteral("3.snapshot.json"));
     },
     ErrorKind::NotFound, sUpToSnapshot, 1, 3},
    {"SlowRetrieval",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pRepository.mFailure = Error{ErrorKind::Unreachable, QStringLiteral("Too slow")};
     },
     ErrorKind::Unreachable, "2.root.json"},
    {"MixedSnapshot",
     [](auto& pRepository, auto&) {
         pRepository.publish();
         pRepository.mFiles[QStringLiteral("3.snapshot.json")] =
             pRepository.mFiles[QStringLiteral("2.snapshot.json")];
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"MixedSnapshotWithoutHashes",
     [](auto& pRepository, auto&) {
         pRepository.mHashesInMeta = false;
         pRepository.publish();
         pRepository.mFiles[QStringLiteral("3.snapshot.json")] =
             pRepository.mFiles[QStringLiteral("2.snapshot.json")];
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"MixedTargetsWithoutHashes",
     [](auto& pRepository, auto&) {
         pRepository.mHashesInMeta = false;
         pRepository.publish();
         pRepository.mFiles[QStringLiteral("3.targets.json")] =
             pRepository.mFiles[QStringLiteral("2.targets.json")];
     },
     ErrorKind::Untrusted, sAll, 1, 3, 3},
    {"AFileOfAnotherRole",
     [](auto& pRepository, auto&) {
         pRepository.mRoles[sTimestampRole].mVersion += 1;
         pRepository.serve(sTimestampRole, pRepository.sign(sTimestampRole, pRepository.snapshotJson()));
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"RolledBackTimestamp",
     [](auto& pRepository, auto&) {
         pRepository.mRoles[sTimestampRole].mVersion = 0;
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"RolledBackSnapshot",
     [](auto& pRepository, auto&) {
         pRepository.mRoles[sSnapshotRole].mVersion = 0;
         pRepository.publishSnapshot();
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"RolledBackTargets",
     [](auto& pRepository, auto&) {
         pRepository.mRoles[sTargetsRole].mVersion = 1;
         pRepository.publishSnapshot();
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"ARoleThatDisappears",
     [](auto& pRepository, auto&) {
         pRepository.mRoles.remove(QStringLiteral("extra"));
         pRepository.publishSnapshot();
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
};

class AttackTest : public ClientTest, public testing::WithParamInterface<Attack>
{
};

TEST_P(AttackTest, IsRefused)
{
    mRepository.delegate(sTargetsRole, QStringLiteral("extra"), {QStringLiteral("extra/*")});
    mRepository.publishTargets(QStringLiteral("extra"));
    mRepository.publish();
    ASSERT_FALSE(refresh());
    ASSERT_EQ(stored(), "root 1, snapshot 2, targets 2, timestamp 2");

    const Attack& tAttack = GetParam();
    tAttack.mDo(mRepository, mNow);
    const Error tError = refresh();
    EXPECT_EQ(tError.mKind, tAttack.mExpected) << tError.mText.toStdString();
    EXPECT_FALSE(tError.mText.isEmpty());
    EXPECT_EQ(requests(), tAttack.mRequests);
    EXPECT_EQ(stored(), QStringLiteral("root %1, snapshot %2, targets %3, timestamp %4")
                            .arg(tAttack.mRoot)
                            .arg(tAttack.mSnapshot)
                            .arg(tAttack.mTargets)
                            .arg(tAttack.mTimestamp)
                            .toStdString());

    // Nothing is offered on the strength of a refresh that failed.
    std::optional<TargetFile> tTarget;
    EXPECT_TRUE(mUpdater->findTarget(sHello, &tTarget));
    EXPECT_FALSE(tTarget);
    EXPECT_FALSE(mUpdater->unchanged());
}

INSTANTIATE_TEST_SUITE_P(Tuf, AttackTest, testing::ValuesIn(sAttacks),
                         [](const auto& pInfo) { return std::string(pInfo.param.mName); });

// What a thief of some keys, but not enough of them, may try.
class KeyCompromiseTest : public ClientTest
{
protected:
    // A root by which the timestamp needs two of two keys.
    void needTwo()
    {
        mRepository.mRoles[sTimestampRole].mKeys = mTwo;
        mRepository.mRoles[sTimestampRole].mThreshold = 2;
    }

    ErrorKind kindAfter(const QByteArray& pTimestamp)
    {
        mRepository.mFiles[QStringLiteral("timestamp.json")] = pTimestamp;
        return refresh().mKind;
    }

    QList<SigningKey> mTwo{TestRepository::newKey(), TestRepository::newKey()};
};

TEST_F(KeyCompromiseTest, ThresholdCountsKeysAndNotSignatures)
{
    needTwo();
    mRepository.publishRoot();
    const QJsonObject tSigned = mRepository.timestampJson();
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0]})), ErrorKind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0], mTwo[0]})), ErrorKind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0], TestRepository::newKey()})), ErrorKind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {TestRepository::newKey(), mTwo[1], mTwo[0]})),
              ErrorKind::None);
}

TEST_F(KeyCompromiseTest, AKeyUnderTwoIdsCountsOnce)
{
    // The second statement of the key has another text, and so another id by hash too.
    const SigningKey tKey = TestRepository::newKey(QStringLiteral("ecdsa"));
    mRepository.mRoles[sTimestampRole].mKeys = {tKey};
    QJsonObject tOther = tKey.publicJson();
    tOther[QStringLiteral("keytype")] = QStringLiteral("ecdsa-sha2-nistp256");
    ++mRepository.mRoles[sRootRole].mVersion;
    QJsonObject tRoot = mRepository.rootJson();
    QJsonObject tKeys = tRoot[QStringLiteral("keys")].toObject();
    tKeys[QStringLiteral("alias")] = tOther;
    tRoot[QStringLiteral("keys")] = tKeys;
    QJsonObject tRoles = tRoot[QStringLiteral("roles")].toObject();
    for (const int tThreshold : {2, 1}) {
        tRoles[sTimestampRole] =
            QJsonObject{{QStringLiteral("keyids"), QJsonArray{tKey.id(), QStringLiteral("alias")}},
                        {QStringLiteral("threshold"), tThreshold}};
        tRoot[QStringLiteral("roles")] = tRoles;
        mRepository.serve(sRootRole, mRepository.sign(sRootRole, tRoot));
        QByteArray tTwice = signMetadata(mRepository.timestampJson(), {tKey, tKey});
        tTwice.replace(tTwice.indexOf(tKey.id().toUtf8()), tKey.id().size(), "alias");
        initialize();
        EXPECT_EQ(kindAfter(tTwice), tThreshold == 2 ? ErrorKind::Untrusted : ErrorKind::None);
    }
}

TEST_F(KeyCompromiseTest, KeyIdsNeedNotBeHashes)
{
    const SigningKey tKey = TestRepository::newKey();
    ++mRepository.mRoles[sRootRole].mVersion;
    mRepository.mRoles[sTimestampRole].mKeys = {tKey};
    QByteArray tRoot = mRepository.sign(sRootRole, mRepository.rootJson());
    QJsonObject tSigned = QJsonDocument::fromJson(tRoot.replace(tKey.id().toUtf8(), "the timestamp's"))
                              .object()[QStringLiteral("signed")]
                              .toObject();
    mRepository.serve(sRootRole, mRepository.sign(sRootRole, tSigned));
    QByteArray tTimestamp = signMetadata(mRepository.timestampJson(), {tKey});
    EXPECT_EQ(kindAfter(tTimestamp.replace(tKey.id().toUtf8(), "the timestamp's")), ErrorKind::None);
}

} // namespace
