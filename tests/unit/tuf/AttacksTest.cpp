// The attacks that the standard names. Each follows a successful refresh, and must neither succeed nor move
// the trusted state beyond what was correctly signed.
#include "ClientTest.h"

#include <functional>

using namespace tarn::tuf;

namespace {

class AttackTest : public ClientTest
{
protected:
    using Step = std::function<void()>;

    TestRepository::Role& role(const QString& pRole) { return mRepository.mRoles[pRole]; }
    QByteArray& file(const char* pName) { return mRepository.mFiles[q(pName)]; }

    // The attacker has own keys for these roles, and the publisher's for the others.
    Step withoutKeysOf(const QStringList& pRoles)
    {
        return [=, this] {
            for (const QString& tRole : pRoles) {
                role(tRole).mKeys = {TestRepository::newKey()};
            }
            pRoles.contains(sRootRole) ? mRepository.publishRoot() : mRepository.publish();
        };
    }
    Step tooLong(const char* pFile, qint64 pBytes)
    {
        return [=, this] {
            pFile[0] == '2' ? mRepository.publishRoot() : mRepository.publish();
            file(pFile).append(QByteArray(pBytes, ' '));
        };
    }
    Step expired(const QString& pRole)
    {
        return [=, this] {
            role(pRole).mExpires = mNow;
            pRole == sRootRole ? mRepository.publishRoot() : mRepository.publish();
        };
    }
    // The file of version 2 in place of version 3.
    Step mixed(const QByteArray& pFile, bool pHashes)
    {
        return [=, this] {
            mRepository.mHashesInMeta = pHashes;
            mRepository.publish();
            file("3." + pFile) = file("2." + pFile);
        };
    }
    Step rolledBack(const QString& pRole, int pVersion)
    {
        return [=, this] {
            role(pRole).mVersion = pVersion;
            if (pRole != sTimestampRole) {
                mRepository.publishSnapshot();
            }
            mRepository.publishTimestamp();
        };
    }

    void root3AsRoot2()
    {
        role(sRootRole).mVersion = 2;
        mRepository.publishRoot();
        file("2.root.json") = file("3.root.json");
    }
    void endlessSnapshot()
    {
        tooLong("3.snapshot.json", Limits().mSnapshotLength)();
        mRepository.publishTimestamp();
    }
    void moreTargets()
    {
        mRepository.publish();
        role(sTargetsRole).mTargets[q("more")] = "Comes along\n";
        mRepository.serve(sTargetsRole,
                          mRepository.sign(sTargetsRole, mRepository.targetsJson(sTargetsRole)));
    }
    void roleThatDisappears()
    {
        mRepository.mRoles.remove(q("extra"));
        mRepository.publishSnapshot();
        mRepository.publishTimestamp();
    }
};

TEST_F(AttackTest, AreRefused)
{
    const struct
    {
        const char* mName;
        Step mDo;
        QList<int>
            mStored; // versions of root, timestamp, snapshot and targets afterwards; before: 1, 2, 2, 2
        Failure::Kind mExpected = Failure::Kind::Untrusted;
    } sAttacks[] = {
        {"software without a key",
         withoutKeysOf({sTargetsRole, sSnapshotRole, sTimestampRole}),
         {1, 2, 2, 2}},
        {"software with the online keys", withoutKeysOf({sTargetsRole}), {1, 3, 3, 2}},
        {"root of a stranger", withoutKeysOf({sRootRole}), {1, 2, 2, 2}},
        {"root of another version", [this] { root3AsRoot2(); }, {1, 2, 2, 2}},
        {"endless root", tooLong("2.root.json", Limits().mRootLength), {1, 2, 2, 2}},
        {"snapshot longer than signed", tooLong("3.snapshot.json", 1), {1, 3, 2, 2}},
        {"snapshot that claims to be endless", [this] { endlessSnapshot(); }, {1, 4, 2, 2}},
        {"extraneous dependencies", [this] { moreTargets(); }, {1, 3, 3, 2}},
        {"frozen", [this] { mNow = role(sTimestampRole).mExpires; }, {1, 2, 2, 2}, Failure::Kind::Expired},
        {"frozen snapshot", expired(sSnapshotRole), {1, 3, 2, 2}, Failure::Kind::Expired},
        {"frozen targets", expired(sTargetsRole), {1, 3, 3, 2}, Failure::Kind::Expired},
        {"frozen root", expired(sRootRole), {2, 2, 2, 2}, Failure::Kind::Expired},
        {"slow",
         [this] {
             mRepository.mFailure = {Failure::Kind::Unreachable, q("Slow")};
         },
         {1, 2, 2, 2},
         Failure::Kind::Unreachable},
        {"mixed snapshot", mixed("snapshot.json", true), {1, 3, 2, 2}},
        {"mixed snapshot without hashes", mixed("snapshot.json", false), {1, 3, 2, 2}},
        {"mixed targets without hashes", mixed("targets.json", false), {1, 3, 3, 2}},
        {"older timestamp", rolledBack(sTimestampRole, 0), {1, 2, 2, 2}, Failure::Kind::OutOfDate},
        {"older snapshot", rolledBack(sSnapshotRole, 0), {1, 2, 2, 2}, Failure::Kind::OutOfDate},
        {"older targets", rolledBack(sTargetsRole, 1), {1, 3, 2, 2}, Failure::Kind::OutOfDate},
        {"role that disappears", [this] { roleThatDisappears(); }, {1, 3, 2, 2}},
    };
    for (const auto& tAttack : sAttacks) {
        SCOPED_TRACE(tAttack.mName);
        mRepository = TestRepository();
        mNow = TestRepository::now();
        initialize();
        mRepository.delegate(sTargetsRole, q("extra"), {q("extra/*")});
        mRepository.publishTargets(q("extra"));
        mRepository.publish();
        ASSERT_FALSE(refresh());
        ASSERT_EQ(stored(), "root 1, snapshot 2, targets 2, timestamp 2");

        tAttack.mDo();
        const Failure tFailure = refresh();
        EXPECT_EQ(tFailure.mKind, tAttack.mExpected) << tFailure.mText;
        EXPECT_FALSE(tFailure.mText.isEmpty());
        EXPECT_EQ(stored(), q("root %1, snapshot %3, targets %4, timestamp %2")
                                .arg(tAttack.mStored[0])
                                .arg(tAttack.mStored[1])
                                .arg(tAttack.mStored[2])
                                .arg(tAttack.mStored[3])
                                .toStdString());
        // Nothing is offered after a failed refresh.
        std::optional<TargetFile> tTarget;
        EXPECT_TRUE(mUpdater->findTarget(q("hello"), &tTarget));
        EXPECT_FALSE(tTarget);
    }
}

// Attacks with some stolen keys, but fewer than the threshold.
class KeyCompromiseTest : public ClientTest
{
protected:
    // A root in which the timestamp needs two of two keys.
    void needTwo()
    {
        mRepository.mRoles[sTimestampRole].mKeys = mTwo;
        mRepository.mRoles[sTimestampRole].mThreshold = 2;
    }

    Failure::Kind kindAfter(const QByteArray& pTimestamp)
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
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0]})), Failure::Kind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0], mTwo[0]})), Failure::Kind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {mTwo[0], TestRepository::newKey()})),
              Failure::Kind::Untrusted);
    EXPECT_EQ(kindAfter(signMetadata(tSigned, {TestRepository::newKey(), mTwo[1], mTwo[0]})),
              Failure::Kind::None);
}

TEST_F(KeyCompromiseTest, AKeyUnderTwoIdsCountsOnce)
{
    // The second entry of the key has another text, and so another hash as its id.
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
        EXPECT_EQ(kindAfter(tTwice), tThreshold == 2 ? Failure::Kind::Untrusted : Failure::Kind::None);
    }
}

} // namespace
