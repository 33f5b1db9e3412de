#include "StoreTest.h"

#include "store/ServerTable.h"

using namespace tarn::vkcore;
using namespace tarn::vkservice::store;
using Outcome = ServerTable::Outcome;

namespace {

ServerEntry server(const QString& pName, bool pDefault = false)
{
    return {.mName = pName,
            .mUri = q("https://%1.example.com/updates").arg(pName),
            .mUser = q("user"),
            .mPassword = {},
            .mDefault = pDefault};
}

class ServerTableTest : public StoreTest
{
protected:
    // "a b* c-": the default server has a star, a disabled one a dash.
    std::string list()
    {
        QStringList tNames;
        const auto tEntries = mServers.entries();
        for (const ServerEntry& tEntry : *tEntries) {
            tNames.append(tEntry.mName + q(tEntry.mDefault ? "*" : "") + q(tEntry.mEnabled ? "" : "-"));
        }
        return tNames.join(u' ').toStdString();
    }
    void add(const char* pName, bool pDefault = false)
    {
        ASSERT_EQ(mServers.add(server(q(pName), pDefault)), Outcome::Done);
    }
    std::string password(int pIndex)
    {
        return mServers.entries()->at(pIndex).mPassword.value_or(QString()).toStdString();
    }

    ServerTable mServers{mStore.database()};
};

} // namespace

TEST_F(ServerTableTest, AtMostOneDefault)
{
    add("a");
    add("b", true);
    add("c", true);
    EXPECT_EQ(list(), "a b c*");
    ASSERT_EQ(mServers.change(0, server(q("a"), true), {}), Outcome::Done);
    EXPECT_EQ(list(), "a* b c");
    reopen();
    ASSERT_EQ(mServers.remove(0, {}), Outcome::Done);
    EXPECT_EQ(list(), "b c");
    EXPECT_TRUE(mServers.defaultEntry()->mUri.isEmpty());
}

TEST_F(ServerTableTest, DefaultServerIsTheEntry)
{
    add("a");
    ASSERT_EQ(mServers.setDefault(q("file:///srv/updates"), q("me"), q("pw")), Outcome::Done);
    EXPECT_EQ(list(), "a updates*");
    EXPECT_EQ(password(1), "pw");
    ServerEntry tChanged = server(q("b"), true);
    tChanged.mEnabled = false;
    tChanged.mSavePassword = true;
    ASSERT_EQ(mServers.change(1, tChanged, {}), Outcome::Done);
    EXPECT_EQ(mServers.defaultEntry()->mUri, tChanged.mUri);
    ASSERT_EQ(mServers.setDefault(q("https://new.example.com/"), q("you"), {}), Outcome::Done);
    EXPECT_EQ(list(), "a b*-") << "name and state of the entry stay";
    EXPECT_EQ(mServers.defaultEntry()->mUser, q("you"));
    EXPECT_EQ(password(1), "");
}

TEST_F(ServerTableTest, PasswordStaysWhereNoneIsSet)
{
    ServerEntry tWith = server(q("a"));
    tWith.mPassword = q("secret");
    tWith.mSavePassword = true;
    ASSERT_EQ(mServers.add(tWith), Outcome::Done);
    ServerEntry tWithout = server(q("b"));
    tWithout.mSavePassword = true;
    ASSERT_EQ(mServers.change(0, tWithout, {}), Outcome::Done);
    EXPECT_EQ(list(), "b");
    EXPECT_EQ(password(0), "secret");
    tWithout.mPassword = QString();
    ASSERT_EQ(mServers.change(0, tWithout, {}), Outcome::Done);
    EXPECT_EQ(password(0), "");
}

TEST_F(ServerTableTest, PasswordThatIsNotToBeSavedNeverReachesTheDisk)
{
    ServerEntry tServer = server(q("a"));
    tServer.mPassword = q("secret");
    ASSERT_EQ(mServers.add(tServer), Outcome::Done);
    EXPECT_EQ(password(0), "secret");
    EXPECT_FALSE(ServerTable(mStore.database()).entries()->at(0).mPassword);
}

TEST_F(ServerTableTest, StaleRevisionChangesNothing)
{
    add("a");
    const auto tSeen = mServers.revision();
    add("b");
    const auto tNow = mServers.revision();
    EXPECT_EQ(mServers.remove(0, tSeen), Outcome::Stale);
    EXPECT_EQ(mServers.change(0, server(q("x")), tSeen), Outcome::Stale);
    EXPECT_EQ(list(), "a b");
    EXPECT_EQ(mServers.revision(), tNow);
    EXPECT_EQ(mServers.remove(0, tNow), Outcome::Done);
    reopen();
    EXPECT_EQ(mServers.revision(), *tNow + 1);
}

TEST_F(ServerTableTest, Refusals)
{
    add("a", true);
    const auto tRevision = mServers.revision();
    for (const int tIndex : {-1, 1, 2147483647}) {
        EXPECT_EQ(mServers.remove(tIndex, {}), Outcome::NoEntry);
        EXPECT_EQ(mServers.change(tIndex, server(q("x"), true), {}), Outcome::NoEntry);
    }
    for (const char* tUri : {"", "http://example.com", "https://", "no address"}) {
        ServerEntry tServer = server(q("x"), true);
        tServer.mUri = q(tUri);
        EXPECT_EQ(mServers.add(tServer), Outcome::Invalid);
        EXPECT_EQ(mServers.change(0, tServer, {}), Outcome::Invalid);
        EXPECT_EQ(mServers.setDefault(q(tUri), {}, {}), Outcome::Invalid);
    }
    ServerEntry tLong = server(QString(8 * 1024 * 1024, u'x'));
    EXPECT_EQ(mServers.add(tLong), Outcome::Invalid) << "the list would not fit into an answer";
    EXPECT_EQ(list(), "a*");
    EXPECT_EQ(mServers.revision(), tRevision);
}
