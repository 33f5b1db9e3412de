// The attacks that the standard names. Each follows a good refresh, and must neither get through nor move the
// trusted state any further than what was rightly signed.
#include "ClientTest.h"

#include "tuf/Hashes.h"

#include <functional>

using namespace tarn::tuf;

namespace {

const QString sHello = q("hello");

using Step = std::function<void(TestRepository& pRepository, QDateTime& pNow)>;

struct Attack
{
    const char* mName;
    Step mDo;
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

void publish(TestRepository& pRepository, const QString& pRole)
{
    if (pRole == sRootRole) {
        pRepository.publishRoot();
    } else {
        pRepository.publish();
    }
}

// Whoever does it has keys of his own for these roles, and the publisher's for the others.
Step withoutKeysOf(const QStringList& pRoles)
{
    return [=](TestRepository& pRepository, QDateTime&) {
        for (const QString& tRole : pRoles) {
            pRepository.mRoles[tRole].mKeys = {TestRepository::newKey()};
        }
        publish(pRepository, pRoles.first());
    };
}

Step tooLong(const QString& pRole, const char* pFile, qint64 pBytes)
{
    return [=](TestRepository& pRepository, QDateTime&) {
        publish(pRepository, pRole);
        pRepository.mFiles[q(pFile)].append(QByteArray(pBytes, ' '));
    };
}

Step expired(const QString& pRole)
{
    return [=](TestRepository& pRepository, QDateTime& pNow) {
        pRepository.mRoles[pRole].mExpires = pNow;
        publish(pRepository, pRole);
    };
}

// The file of version 2 in the place of version 3.
Step mixed(const char* pFile, bool pHashes)
{
    return [=](TestRepository& pRepository, QDateTime&) {
        pRepository.mHashesInMeta = pHashes;
        pRepository.publish();
        pRepository.mFiles[q("3.") + q(pFile)] = pRepository.mFiles[q("2.") + q(pFile)];
    };
}

Step rolledBack(const QString& pRole, int pVersion)
{
    return [=](TestRepository& pRepository, QDateTime&) {
        pRepository.mRoles[pRole].mVersion = pVersion;
        if (pRole != sTimestampRole) {
            pRepository.publishSnapshot();
        }
        pRepository.publishTimestamp();
    };
}

const Attack sAttacks[] = {
    {"ArbitrarySoftwareWithoutAKey", withoutKeysOf({sTargetsRole, sSnapshotRole, sTimestampRole}),
     ErrorKind::Untrusted, sUpToTimestamp},
    {"ArbitrarySoftwareWithTheOnlineKeys", withoutKeysOf({sTargetsRole}), ErrorKind::Untrusted, sAll, 1, 3,
     3},
    {"RootOfAStranger", withoutKeysOf({sRootRole}), ErrorKind::Untrusted, "2.root.json"},
    {"RootThatItsOwnKeysDidNotSign",
     [](TestRepository& pRepository, QDateTime& pNow) {
         const QList<SigningKey> tOld = pRepository.mRoles[sRootRole].mKeys;
         withoutKeysOf({sRootRole})(pRepository, pNow);
         pRepository.serve(sRootRole, signMetadata(pRepository.rootJson(), tOld));
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"RootOfAnotherVersion",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.mRoles[sRootRole].mVersion = 2;
         pRepository.publishRoot();
         pRepository.mFiles[q("2.root.json")] = pRepository.mFiles[q("3.root.json")];
     },
     ErrorKind::Untrusted, "2.root.json"},
    {"EndlessRoot", tooLong(sRootRole, "2.root.json", Limits().mRootLength), ErrorKind::Untrusted,
     "2.root.json"},
    {"EndlessTimestamp", tooLong(sTimestampRole, "timestamp.json", Limits().mTimestampLength),
     ErrorKind::Untrusted, sUpToTimestamp},
    {"SnapshotLongerThanSigned", tooLong(sSnapshotRole, "3.snapshot.json", 1), ErrorKind::Untrusted,
     sUpToSnapshot, 1, 3},
    {"SnapshotThatClaimsToBeEndless",
     [](TestRepository& pRepository, QDateTime& pNow) {
         tooLong(sSnapshotRole, "3.snapshot.json", Limits().mSnapshotLength)(pRepository, pNow);
         pRepository.publishTimestamp();
     },
     ErrorKind::Untrusted, sUpToSnapshot, 1, 4},
    {"ExtraneousDependencies",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.publish();
         pRepository.mRoles[sTargetsRole].mTargets[q("more")] = "Comes along\n";
         pRepository.serve(sTargetsRole,
                           pRepository.sign(sTargetsRole, pRepository.targetsJson(sTargetsRole)));
     },
     ErrorKind::Untrusted, sAll, 1, 3, 3},
    {"FastForwardBeyondAllNumbers",
     [](TestRepository& pRepository, QDateTime&) {
         QJsonObject tSigned = pRepository.timestampJson();
         tSigned[q("version")] = 1e18;
         QByteArray tFile = pRepository.sign(sTimestampRole, tSigned);
         pRepository.serve(sTimestampRole, tFile.replace("1000000000000000000", "1000000000000000000000"));
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"FrozenTimestamp",
     [](TestRepository& pRepository, QDateTime& pNow) { pNow = pRepository.mRoles[sTimestampRole].mExpires; },
     ErrorKind::Expired, sUpToTimestamp},
    {"NewTimestampThatIsOld", expired(sTimestampRole), ErrorKind::Expired, sUpToTimestamp},
    {"FrozenSnapshot", expired(sSnapshotRole), ErrorKind::Expired, sUpToSnapshot, 1, 3},
    {"FrozenTargets", expired(sTargetsRole), ErrorKind::Expired, sAll, 1, 3, 3},
    {"FrozenRoot", expired(sRootRole), ErrorKind::Expired, "2.root.json, 3.root.json", 2},
    {"MirrorWithoutTheSnapshot",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.publish();
         pRepository.mFiles.remove(q("3.snapshot.json"));
     },
     ErrorKind::NotFound, sUpToSnapshot, 1, 3},
    {"SlowRetrieval",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.publish();
         pRepository.mFailure = Error{ErrorKind::Unreachable, q("Too slow")};
     },
     ErrorKind::Unreachable, "2.root.json"},
    {"MixedSnapshot", mixed("snapshot.json", true), ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"MixedSnapshotWithoutHashes", mixed("snapshot.json", false), ErrorKind::Untrusted, sUpToSnapshot, 1, 3},
    {"MixedTargetsWithoutHashes", mixed("targets.json", false), ErrorKind::Untrusted, sAll, 1, 3, 3},
    {"AFileOfAnotherRole",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.mRoles[sTimestampRole].mVersion += 1;
         pRepository.serve(sTimestampRole, pRepository.sign(sTimestampRole, pRepository.snapshotJson()));
     },
     ErrorKind::Untrusted, sUpToTimestamp},
    {"RolledBackTimestamp", rolledBack(sTimestampRole, 0), ErrorKind::OutOfDate, sUpToTimestamp},
    {"RolledBackSnapshot", rolledBack(sSnapshotRole, 0), ErrorKind::OutOfDate, sUpToTimestamp},
    {"RolledBackTargets", rolledBack(sTargetsRole, 1), ErrorKind::OutOfDate, sUpToSnapshot, 1, 3},
    {"ARoleThatDisappears",
     [](TestRepository& pRepository, QDateTime&) {
         pRepository.mRoles.remove(q("extra"));
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
    mRepository.delegate(sTargetsRole, q("extra"), {q("extra/*")});
    mRepository.publishTargets(q("extra"));
    mRepository.publish();
    ASSERT_FALSE(refresh());
    ASSERT_EQ(stored(), "root 1, snapshot 2, targets 2, timestamp 2");

    const Attack& tAttack = GetParam();
    tAttack.mDo(mRepository, mNow);
    const Error tError = refresh();
    EXPECT_EQ(tError.mKind, tAttack.mExpected) << tError.mText;
    EXPECT_FALSE(tError.mText.isEmpty());
    EXPECT_EQ(requests(), tAttack.mRequests);
    EXPECT_EQ(stored(), q("root %1, snapshot %2, targets %3, timestamp %4")
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
        mRepository.mFiles[q("timestamp.json")] = pTimestamp;
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
    const SigningKey tKey = TestRepository::newKey(q("ecdsa"));
    mRepository.mRoles[sTimestampRole].mKeys = {tKey};
    QJsonObject tOther = tKey.publicJson();
    tOther[q("keytype")] = q("ecdsa-sha2-nistp256");
    ++mRepository.mRoles[sRootRole].mVersion;
    QJsonObject tRoot = mRepository.rootJson();
    QJsonObject tKeys = tRoot[q("keys")].toObject();
    tKeys[q("alias")] = tOther;
    tRoot[q("keys")] = tKeys;
    QJsonObject tRoles = tRoot[q("roles")].toObject();
    for (const int tThreshold : {2, 1}) {
        tRoles[sTimestampRole] =
            QJsonObject{{q("keyids"), QJsonArray{tKey.id(), q("alias")}}, {q("threshold"), tThreshold}};
        tRoot[q("roles")] = tRoles;
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
                              .object()[q("signed")]
                              .toObject();
    mRepository.serve(sRootRole, mRepository.sign(sRootRole, tSigned));
    QByteArray tTimestamp = signMetadata(mRepository.timestampJson(), {tKey});
    EXPECT_EQ(kindAfter(tTimestamp.replace(tKey.id().toUtf8(), "the timestamp's")), ErrorKind::None);
}

} // namespace
