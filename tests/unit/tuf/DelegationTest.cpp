#include "ClientTest.h"

#include "tuf/DelegationSearch.h"
#include "tuf/Hashes.h"
#include "tuf/PathPattern.h"

using namespace tarn::tuf;

namespace {

TEST(PathPattern, Table)
{
    const std::tuple<const char*, const char*, bool> sCases[] = {
        {"foo.tgz", "foo.tgz", true},
        {"foo.tgz", "*.tgz", true},
        {"foo.tgz", "foo.t?z", true},
        {"foo.tgz", "FOO.tgz", false},
        {"a/foo.tgz", "*.tgz", false},
        {"a/foo.tgz", "*/*.tgz", true},
        {"a/b/foo.tgz", "*/*.tgz", false},
        {"a/foo", "a?foo", false},
        {"a/", "a/*", true},
        {"a/b", "**b", false},
        {"ab", "a**b", true},
        {"aXbXcXb", "a*b*b", true},
        {"aXbXcX/b", "a*b*b", false},
        {"mississippi", "m*iss*ip*i", true},
        {"\xf0\x9f\x93\xa6.tgz", "?.tgz", true}, // one character beyond the basic plane
        {"a", "[a]", false},
        {"", "*", true},
        {"", "?", false},
    };
    for (const auto& [tPath, tPattern, tFits] : sCases) {
        SCOPED_TRACE(testing::Message() << tPath << " and " << tPattern);
        EXPECT_EQ(matchesPattern(q(tPath), q(tPattern)), tFits);
    }
}

TEST(PathPattern, ManyStarsTakeNoExponentialTime)
{
    const QString tPattern = q("*a").repeated(200) + q("b");
    EXPECT_FALSE(matchesPattern(QString(2000, u'a'), tPattern));
}

TEST(DelegationSearch, HashPrefixesAndBins)
{
    const QString tHash = q(sha256("some/file"));
    Delegations tDelegations;
    tDelegations.mRoles = {{q("other"), {}, true, {}, {q("zz"), tHash.mid(1, 4)}},
                           {q("right"), {}, false, {}, {q("zz"), tHash.left(3)}}};
    const QList<RoleChoice> tChoices = rolesForTarget(tDelegations, q("some/file"));
    ASSERT_EQ(tChoices.size(), 1);
    EXPECT_EQ(tChoices[0].mRole, q("right"));

    for (const int tBits : {1, 4, 5, 32}) {
        SCOPED_TRACE(tBits);
        tDelegations.mSuccinct = SuccinctRoles{{}, tBits, q("bin")};
        const quint32 tBin = tHash.left(8).toUInt(nullptr, 16) >> (32 - tBits);
        const QString tName = q("bin-") + QString::number(tBin, 16).rightJustified((tBits + 3) / 4, u'0');
        EXPECT_EQ(rolesForTarget(tDelegations, q("some/file"))[0].mRole, tName);
        EXPECT_TRUE(keysOfRole(tDelegations, tName));
    }
    EXPECT_EQ(delegatedRoleNames(tDelegations, 33).size(), 33);
}

QStringList words(const char* pText)
{
    return q(pText).split(u' ', Qt::SkipEmptyParts);
}

using DelegationTest = ClientTest;

TEST_F(DelegationTest, RolesAreSearchedInOrder)
{
    // Delegations "FROM TO PATTERN", terminating ones with "!" in front; the roles that have the file "file";
    // the order in which delegated roles are fetched; and where it is found.
    const char* const sGraphs[][4] = {
        {"targets A *;targets B *", "A B", "A", "A"},
        {"targets A *", "targets A", "", "targets"},
        {"targets A *;targets B *;A C *;B D *", "", "A C B D", ""}, // depth first
        {"targets A x*;targets B dir/*;targets C f?le", "A C", "C", "C"},
        {"targets A x*;A B *", "B", "", ""}, // a delegate may not extend its share
        {"targets A *;!targets B *;targets C *", "C", "A B", ""},
        {"targets A *;targets B *;A D *;!A C *;C E *", "B", "A D C E", ""},
        {"!targets A x;targets B *", "B", "B", "B"},
        {"targets A *;targets B *;A C *;C A *;B C *;B D *", "D", "A C B D", "D"}, // a diamond and a cycle
    };
    for (const auto& [tEdges, tHolders, tVisited, tExpected] : sGraphs) {
        SCOPED_TRACE(tEdges);
        mRepository = TestRepository();
        initialize();
        for (const QString& tEdge : q(tEdges).split(u';')) {
            const QStringList tWords = QString(tEdge).remove(u'!').split(u' ');
            mRepository.delegate(tWords[0], tWords[1], {tWords[2]}, tEdge.startsWith(u'!'));
        }
        for (const QString& tHolder : words(tHolders)) {
            mRepository.mRoles[tHolder].mTargets.insert(q("file"), "Content\n");
        }
        for (const QString& tRole : mRepository.mRoles.keys()) {
            if (tRole.size() == 1) {
                mRepository.publishTargets(tRole);
            }
        }
        mRepository.publish();
        QStringList tFetches;
        for (const QString& tRole : words(tVisited)) {
            tFetches.append(q("1.%1.json").arg(tRole));
        }
        QString tRole;
        ASSERT_FALSE(refresh());
        EXPECT_GOOD(find(q("file"), &tRole));
        EXPECT_EQ(tRole.toStdString(), tExpected);
        EXPECT_EQ(requests(), tFetches.join(q(", ")).toStdString());

        // The second time, everything comes from this machine.
        ASSERT_FALSE(refresh());
        EXPECT_GOOD(find(q("file"), &tRole));
        EXPECT_EQ(tRole.toStdString(), tExpected);
        EXPECT_EQ(requests(), "");

        // The list of all targets has each from the role where a search finds it.
        QList<TargetFile> tAll;
        EXPECT_GOOD(mUpdater->allTargets(&tAll));
        QString tFoundIn;
        for (const TargetFile& tTarget : tAll) {
            tFoundIn = tTarget.mPath == q("file") ? tTarget.mCustom[q("by")].toString() : tFoundIn;
        }
        EXPECT_EQ(tFoundIn.toStdString(), tExpected);
    }
}

TEST_F(DelegationTest, EveryDelegatorChecksTheRoleForItself)
{
    // A and B both delegate to C, but B names another key for it.
    mRepository.delegate(sTargetsRole, q("A"), {q("a*")});
    mRepository.delegate(sTargetsRole, q("B"), {q("b*")});
    mRepository.delegate(q("A"), q("C"), {q("*")});
    const QList<SigningKey> tRight = mRepository.mRoles[q("C")].mKeys;
    mRepository.mRoles[q("C")].mKeys = {TestRepository::newKey()};
    mRepository.delegate(q("B"), q("C"), {q("*")});
    mRepository.mRoles[q("C")].mKeys = tRight;
    mRepository.mRoles[q("C")].mTargets = {{q("a1"), "A"}, {q("b1"), "B"}};
    for (const QString& tName : {q("A"), q("B"), q("C")}) {
        mRepository.publishTargets(tName);
    }
    mRepository.publish();
    QString tRole;
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("a1"), &tRole));
    EXPECT_EQ(tRole, q("C"));
    for (int i = 0; i < 2; ++i) { // with C in memory, then only in the folder
        EXPECT_EQ(find(q("b1"), &tRole).mKind, Failure::Kind::Untrusted);
        EXPECT_EQ(tRole, QString());
        ASSERT_FALSE(refresh());
    }
    QList<TargetFile> tAll;
    EXPECT_EQ(mUpdater->allTargets(&tAll).mKind, Failure::Kind::Untrusted);
}

TEST_F(DelegationTest, RanksRolesInTheOrderOfTheSearch)
{
    const char* const tEdges[] = {"targets B", "targets A", "B D", "B C", "A C", "C B"};
    for (const char* tEdge : tEdges) {
        mRepository.delegate(words(tEdge)[0], words(tEdge)[1], {q("*")});
    }
    for (const QString& tRole : words("A B C D targets")) {
        mRepository.mRoles[tRole].mTargets = {{q("in ") + tRole, "Content"}};
        if (tRole != sTargetsRole) {
            mRepository.publishTargets(tRole);
        }
    }
    mRepository.publish();
    ASSERT_FALSE(refresh());
    QList<TargetFile> tAll;
    EXPECT_GOOD(mUpdater->allTargets(&tAll));
    QMap<int, QString> tRanks;
    for (const TargetFile& tTarget : tAll) {
        EXPECT_EQ(tTarget.mPath, q("in ") + tTarget.mRole);
        tRanks.insert(tTarget.mRoleRank, tTarget.mRole);
    }
    EXPECT_EQ(tRanks.values(), words("targets B D C A"));
}

TEST_F(DelegationTest, ADelegatedRoleIsHeldToTheSnapshot)
{
    mRepository.delegate(sTargetsRole, q("A"), {q("*")});
    mRepository.publishTargets(q("A"));
    mRepository.publish();
    const auto tFind = [this] {
        QString tRole;
        EXPECT_GOOD(refresh());
        return find(q("file"), &tRole).mKind;
    };
    const QByteArray tGood = mRepository.mFiles[q("1.A.json")];
    mRepository.mFiles[q("1.A.json")].append(' ');
    EXPECT_EQ(tFind(), Failure::Kind::Untrusted);
    mRepository.mFiles[q("1.A.json")] = tGood;
    QJsonObject tSigned = mRepository.snapshotJson();
    tSigned[q("meta")] = QJsonObject{{q("targets.json"), tSigned[q("meta")][q("targets.json")]}};
    mRepository.serve(sSnapshotRole, mRepository.sign(sSnapshotRole, tSigned));
    mRepository.publishTimestamp();
    initialize();
    EXPECT_EQ(tFind(), Failure::Kind::Untrusted) << "it is not in the snapshot";
    EXPECT_EQ(read(q("A.json")), QByteArray());
}

TEST_F(DelegationTest, OddRoleNamesStayInTheFolder)
{
    const char* const sNames[][2] = {{"?", "%3F"}, {"../x", "..%2Fx"}, {"/abs", "%2Fabs"},
                                     {"..", ".."}, {"100%", "100%25"}, {"\xc3\xa4\"", "%C3%A4%22"}};
    QStringList tRequests;
    for (const auto& [tName, tFile] : sNames) {
        mRepository.delegate(sTargetsRole, q(tName), {q("*")});
        mRepository.publishTargets(q(tName));
        tRequests.append(q("1.%1.json").arg(q(tFile)));
    }
    mRepository.publish();
    QString tRole;
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("file"), &tRole));
    EXPECT_EQ(requests(), tRequests.join(q(", ")).toStdString());
    EXPECT_EQ(QDir(mDir).entryList(QDir::Files | QDir::Hidden).size(), 4 + std::size(sNames));
    EXPECT_EQ(QDir(mTemporary.path()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size(), 1);
}

TEST_F(DelegationTest, TheNumberOfRolesIsBounded)
{
    mLimits.mMaxDelegations = 4;
    for (int i = 0; i < 6; ++i) {
        const QString tName = q("R%1").arg(i);
        mRepository.delegate(sTargetsRole, tName, {q("*")});
        mRepository.publishTargets(tName);
    }
    mRepository.publish();
    QString tRole;
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("file"), &tRole));
    EXPECT_EQ(requests(), "1.R0.json, 1.R1.json, 1.R2.json, 1.R3.json");
    QList<TargetFile> tAll;
    EXPECT_EQ(mUpdater->allTargets(&tAll).mKind, Failure::Kind::Untrusted);
}

TEST_F(DelegationTest, FetchPathsOfTargets)
{
    const char* const sPaths[][3] = {// the path, and what comes before the hash and behind it
                                     {"plain", "", "plain"},
                                     {"a/b/odd ?#%", "a/b/", "odd%20%3F%23%25"},
                                     {"../\xc3\xa4", "%2E%2E/", "%C3%A4"}};
    for (const auto& tCase : sPaths) {
        mRepository.mRoles[sTargetsRole].mTargets.insert(q(tCase[0]), "x");
    }
    mRepository.publish();
    ASSERT_FALSE(refresh());
    for (const auto& tCase : sPaths) {
        std::optional<TargetFile> tTarget;
        EXPECT_GOOD(mUpdater->findTarget(q(tCase[0]), &tTarget));
        ASSERT_TRUE(tTarget);
        EXPECT_EQ(tTarget->mFetchPath, q("%1%2.%3").arg(q(tCase[1]), q(sha256("x")), q(tCase[2])));
    }
}

} // namespace
