#include "ClientTest.h"

#include "tuf/DelegationSearch.h"
#include "tuf/Hashes.h"
#include "tuf/PathPattern.h"

using namespace tarn::tuf;

namespace {

TEST(PathPattern, Table)
{
    const struct
    {
        const char* mPath;
        const char* mPattern;
        bool mFits;
    } sCases[] = {
        {"foo.tgz", "foo.tgz", true},
        {"foo.tgz", "*.tgz", true},
        {"foo.tgz", "foo.t?z", true},
        {"foo.tgz", "*", true},
        {"foo.tgz", "FOO.tgz", false},
        {"foo.tgz", "foo", false},
        {"foo", "foo.tgz", false},
        {"a/foo.tgz", "*.tgz", false},
        {"a/foo.tgz", "*/*.tgz", true},
        {"a/b/foo.tgz", "*/*.tgz", false},
        {"a/b/foo.tgz", "a/*/foo.tgz", true},
        {"a/foo", "a?foo", false},
        {"a/", "a/*", true},
        {"a", "a/*", false},
        {"/a", "*a", false},
        {"a/b", "**b", false},
        {"ab", "a**b", true},
        {"aXbXcXb", "a*b*b", true},
        {"aXbXcX/b", "a*b*b", false},
        {"ab/c", "*b/c", true},
        {"aab/abc/c", "a*b/a*c/*", true},
        {"mississippi", "m*iss*ip*i", true},
        {"mississippi", "m*iss*ip*x", false},
        {"\xf0\x9f\x93\xa6.tgz", "?.tgz", true}, // one character beyond the basic plane
        {"[a]", "[a]", true},
        {"a", "[a]", false},
        {"", "", true},
        {"", "*", true},
        {"", "?", false},
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(testing::Message() << tCase.mPath << " and " << tCase.mPattern);
        EXPECT_EQ(matchesPattern(q(tCase.mPath), q(tCase.mPattern)), tCase.mFits);
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

struct Edge
{
    const char* mFrom;
    const char* mTo;
    const char* mPattern = "*";
    bool mTerminating = false;
};

struct Graph
{
    const char* mName;
    QList<Edge> mEdges;
    const char* mHolders; // the roles that have the file "file", with blanks between
    const char* mVisited; // the order in which delegated roles are fetched
    const char* mFoundIn;
};

const Graph sGraphs[] = {
    {"OneLevelInOrder", {{"targets", "A"}, {"targets", "B"}, {"targets", "C"}}, "", "A B C", ""},
    {"FirstOneWins", {{"targets", "A"}, {"targets", "B"}}, "A B", "A", "A"},
    {"TheDelegatorComesFirst", {{"targets", "A"}}, "targets A", "", "targets"},
    {"DepthFirst", {{"targets", "A"}, {"targets", "B"}, {"A", "C"}, {"B", "D"}}, "", "A C B D", ""},
    {"DepthBeforeBreadth", {{"targets", "A"}, {"targets", "B"}, {"A", "C"}}, "B C", "A C", "C"},
    {"PatternsKeepRolesOut",
     {{"targets", "A", "x*"}, {"targets", "B", "dir/*"}, {"targets", "C", "f?le"}},
     "A C",
     "C",
     "C"},
    {"ADelegateMayNotWidenItsShare", {{"targets", "A", "x*"}, {"A", "B", "*"}}, "B", "", ""},
    {"Terminating", {{"targets", "A"}, {"targets", "B", "*", true}, {"targets", "C"}}, "C", "A B", ""},
    {"TerminatingGoesOnDownwards",
     {{"targets", "A", "*", true}, {"targets", "B"}, {"A", "C"}},
     "C",
     "A C",
     "C"},
    {"TerminatingInTheDepth",
     {{"targets", "A"}, {"targets", "B"}, {"A", "C", "*", true}, {"A", "D"}, {"C", "E"}},
     "B",
     "A C E",
     ""},
    {"TerminatingThatDoesNotMatch", {{"targets", "A", "x", true}, {"targets", "B"}}, "B", "B", "B"},
    {"Cycle", {{"targets", "A"}, {"A", "B"}, {"B", "A"}, {"B", "C"}}, "C", "A B C", "C"},
    {"Diamond",
     {{"targets", "A"}, {"targets", "B"}, {"A", "C"}, {"B", "C"}, {"B", "D"}},
     "D",
     "A C B D",
     "D"},
};

void PrintTo(const Graph& pGraph, std::ostream* pStream)
{
    *pStream << pGraph.mName;
}

class GraphTest : public ClientTest, public testing::WithParamInterface<Graph>
{
};

QStringList words(const char* pText)
{
    return q(pText).split(u' ', Qt::SkipEmptyParts);
}

TEST_P(GraphTest, IsSearchedInOrder)
{
    const Graph& tGraph = GetParam();
    for (const Edge& tEdge : tGraph.mEdges) {
        mRepository.delegate(q(tEdge.mFrom), q(tEdge.mTo), {q(tEdge.mPattern)}, tEdge.mTerminating);
    }
    for (const QString& tHolder : words(tGraph.mHolders)) {
        mRepository.mRoles[tHolder].mTargets.insert(q("file"), "Content\n");
    }
    for (const QString& tRole : mRepository.mRoles.keys()) {
        if (tRole.size() == 1) {
            mRepository.publishTargets(tRole);
        }
    }
    mRepository.publish();
    QStringList tFetches;
    for (const QString& tRole : words(tGraph.mVisited)) {
        tFetches.append(q("1.%1.json").arg(tRole));
    }
    QString tRole;
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("file"), &tRole));
    EXPECT_EQ(tRole.toStdString(), tGraph.mFoundIn);
    EXPECT_EQ(requests(), tFetches.join(q(", ")).toStdString());

    // The second time all comes from this machine.
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("file"), &tRole));
    EXPECT_EQ(tRole.toStdString(), tGraph.mFoundIn);
    EXPECT_EQ(requests(), "");

    // All targets together come from where a search finds them.
    QList<TargetFile> tAll;
    EXPECT_GOOD(mUpdater->allTargets(&tAll));
    QString tFoundIn;
    for (const TargetFile& tTarget : tAll) {
        tFoundIn = tTarget.mPath == q("file") ? tTarget.mCustom[q("by")].toString() : tFoundIn;
    }
    EXPECT_EQ(tFoundIn.toStdString(), tGraph.mFoundIn);
}

INSTANTIATE_TEST_SUITE_P(Tuf, GraphTest, testing::ValuesIn(sGraphs),
                         [](const auto& pInfo) { return std::string(pInfo.param.mName); });

using DelegationTest = ClientTest;

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
        EXPECT_EQ(find(q("b1"), &tRole).mKind, ErrorKind::Untrusted);
        EXPECT_EQ(tRole, QString());
        ASSERT_FALSE(refresh());
    }
    QList<TargetFile> tAll;
    EXPECT_EQ(mUpdater->allTargets(&tAll).mKind, ErrorKind::Untrusted);
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
    mRepository.mRoles[q("A")].mTargets = {{q("file"), "1"}};
    mRepository.publishTargets(q("A"));
    mRepository.publish();
    const struct
    {
        const char* mWhat;
        std::function<void()> mDo;
        ErrorKind mExpected;
    } sCases[] = {
        {"missing", [&] { mRepository.mFiles.remove(q("1.A.json")); }, ErrorKind::NotFound},
        {"changed", [&] { mRepository.mFiles[q("1.A.json")].append(' '); }, ErrorKind::Untrusted},
        {"another version",
         [&] {
             mRepository.mHashesInMeta = false;
             mRepository.publishSnapshot();
             mRepository.publishTimestamp();
             mRepository.publishTargets(q("A"));
             mRepository.mFiles[q("1.A.json")] = mRepository.mFiles[q("2.A.json")];
         },
         ErrorKind::Untrusted},
        {"expired",
         [&] {
             mRepository.mRoles[q("A")].mExpires = mNow;
             mRepository.publishTargets(q("A"));
             mRepository.publish();
         },
         ErrorKind::Expired},
        {"not in the snapshot",
         [&] {
             QJsonObject tSigned = mRepository.snapshotJson();
             QJsonObject tMeta = tSigned[q("meta")].toObject();
             tMeta.remove(q("A.json"));
             tSigned[q("meta")] = tMeta;
             mRepository.serve(q("snapshot"), mRepository.sign(q("snapshot"), tSigned));
             mRepository.publishTimestamp();
             initialize();
         },
         ErrorKind::Untrusted},
    };
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(tCase.mWhat);
        const QMap<QString, QByteArray> tFiles = mRepository.mFiles;
        tCase.mDo();
        QString tRole;
        ASSERT_FALSE(refresh());
        EXPECT_EQ(find(q("file"), &tRole).mKind, tCase.mExpected);
        EXPECT_EQ(read(q("A.json")), QByteArray());
        mRepository.mFiles[q("1.A.json")] = tFiles[q("1.A.json")];
    }
}

TEST_F(DelegationTest, OddRoleNamesStayInTheFolder)
{
    const char* const sNames[] = {"?", "#", "../x", "/abs", "..", "a b", "100%", "\xc3\xa4", "a\"b"};
    const char* const sFiles[] = {"%3F",   "%23",    "..%2Fx", "%2Fabs", "..",
                                  "a%20b", "100%25", "%C3%A4", "a%22b"};
    for (const char* tName : sNames) {
        mRepository.delegate(sTargetsRole, q(tName), {q("*")});
        mRepository.publishTargets(q(tName));
    }
    mRepository.publish();
    QString tRole;
    ASSERT_FALSE(refresh());
    EXPECT_GOOD(find(q("file"), &tRole));
    QStringList tRequests;
    for (const char* tFile : sFiles) {
        tRequests.append(q("1.%1.json").arg(q(tFile)));
        EXPECT_FALSE(read(q("%1.json").arg(q(tFile))).isEmpty()) << tFile;
    }
    EXPECT_EQ(requests(), tRequests.join(q(", ")).toStdString());
    EXPECT_EQ(QDir(mDir).entryList(QDir::Files | QDir::Hidden).size(), 4 + 9);
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
    EXPECT_EQ(mUpdater->allTargets(&tAll).mKind, ErrorKind::Untrusted);
}

TEST_F(DelegationTest, FetchPathsOfTargets)
{
    const struct
    {
        const char* mPath;
        const char* mFolder; // what comes before the hash
        const char* mName;   // and what behind it
    } sCases[] = {{"plain", "", "plain"},
                  {"a/b/c", "a/b/", "c"},
                  {"odd ?#%", "", "odd%20%3F%23%25"},
                  {"../up", "%2E%2E/", "up"},
                  {"\xc3\xa4/\xc3\xb6", "%C3%A4/", "%C3%B6"},
                  {"dir/", "dir/", ""}};
    for (const auto& tCase : sCases) {
        mRepository.mRoles[sTargetsRole].mTargets.insert(q(tCase.mPath), "x");
    }
    mRepository.publish();
    ASSERT_FALSE(refresh());
    for (const auto& tCase : sCases) {
        SCOPED_TRACE(tCase.mPath);
        std::optional<TargetFile> tTarget;
        EXPECT_GOOD(mUpdater->findTarget(q(tCase.mPath), &tTarget));
        ASSERT_TRUE(tTarget);
        EXPECT_EQ(tTarget->mFetchPath, q("%1%2.%3").arg(q(tCase.mFolder), q(sha256("x")), q(tCase.mName)));
    }
}

} // namespace
