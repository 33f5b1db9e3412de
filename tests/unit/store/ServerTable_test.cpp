#include "StoreTest.h"

#include "store/ServerTable.h"

#include <vkcore/Server.h>

#include <QtCore/QElapsedTimer>

using namespace tarn::vkcore;
using namespace tarn::vkservice::store;
using Outcome = ServerTable::Outcome;

namespace {

GRef<Server> server(const QString& pName, bool pDefault = false)
{
    GRef<Server> tServer(new Server(nullptr));
    tServer->setName(pName);
    tServer->setUri(QStringLiteral("https://%1.example.com/updates").arg(pName));
    tServer->setUserName(QStringLiteral("user"));
    tServer->setDefault(pDefault);
    return tServer;
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
            tNames.append(tEntry.mName + QLatin1String(tEntry.mDefault ? "*" : "") +
                          QLatin1String(tEntry.mEnabled ? "" : "-"));
        }
        return tNames.join(u' ').toStdString();
    }
    void add(const char* pName, bool pDefault = false)
    {
        ASSERT_EQ(mServers.add(*server(QLatin1String(pName), pDefault)), Outcome::Done);
    }
    std::string password(int pIndex) { return mServers.entries()->at(pIndex).mPassword.toStdString(); }

    ServerTable mServers{mStore.database()};
};

} // namespace

TEST_F(ServerTableTest, AtMostOneDefault)
{
    add("a");
    add("b", true);
    add("c", true);
    EXPECT_EQ(list(), "a b c*");
    ASSERT_EQ(mServers.change(0, *server(QStringLiteral("a"), true), {}), Outcome::Done);
    EXPECT_EQ(list(), "a* b c");
    reopen();
    ASSERT_EQ(mServers.remove(0, {}), Outcome::Done);
    EXPECT_EQ(list(), "b c");
    EXPECT_TRUE(mServers.defaultEntry()->mUri.isEmpty());
}

TEST_F(ServerTableTest, DefaultServerIsTheEntry)
{
    add("a");
    ASSERT_EQ(mServers.setDefault(QStringLiteral("file:///srv/updates"), QStringLiteral("me"),
                                  QStringLiteral("pw")),
              Outcome::Done);
    EXPECT_EQ(list(), "a updates*");
    EXPECT_EQ(password(1), "pw");
    GRef<Server> tChanged = server(QStringLiteral("b"), true);
    tChanged->setEnabled(false);
    tChanged->setSavePassword(true);
    ASSERT_EQ(mServers.change(1, *tChanged, {}), Outcome::Done);
    EXPECT_EQ(mServers.defaultEntry()->mUri, tChanged->getUri());
    ASSERT_EQ(mServers.setDefault(QStringLiteral("https://new.example.com/"), QStringLiteral("you"), {}),
              Outcome::Done);
    EXPECT_EQ(list(), "a b*-") << "name and state of the entry stay";
    EXPECT_EQ(mServers.defaultEntry()->mUser, QStringLiteral("you"));
    EXPECT_EQ(password(1), "");
}

TEST_F(ServerTableTest, PasswordStaysWhereNoneIsSet)
{
    GRef<Server> tWith = server(QStringLiteral("a"));
    tWith->setPassword(QStringLiteral("secret"));
    tWith->setSavePassword(true);
    ASSERT_EQ(mServers.add(*tWith), Outcome::Done);
    GRef<Server> tWithout = server(QStringLiteral("b"));
    tWithout->setSavePassword(true);
    ASSERT_EQ(mServers.change(0, *tWithout, {}), Outcome::Done);
    EXPECT_EQ(list(), "b");
    EXPECT_EQ(password(0), "secret");
    tWithout->setPassword(QString());
    ASSERT_EQ(mServers.change(0, *tWithout, {}), Outcome::Done);
    EXPECT_EQ(password(0), "");
}

TEST_F(ServerTableTest, PasswordThatIsNotToBeSavedNeverReachesTheDisk)
{
    GRef<Server> tServer = server(QStringLiteral("a"));
    tServer->setPassword(QStringLiteral("secret"));
    ASSERT_EQ(mServers.add(*tServer), Outcome::Done);
    EXPECT_EQ(password(0), "secret");
    EXPECT_TRUE(ServerTable(mStore.database()).entries()->at(0).mPassword.isNull());
}

TEST_F(ServerTableTest, StaleRevisionChangesNothing)
{
    add("a");
    const auto tSeen = mServers.revision();
    add("b");
    const auto tNow = mServers.revision();
    EXPECT_EQ(mServers.remove(0, tSeen), Outcome::Stale);
    EXPECT_EQ(mServers.change(0, *server(QStringLiteral("x")), tSeen), Outcome::Stale);
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
        EXPECT_EQ(mServers.change(tIndex, *server(QStringLiteral("x"), true), {}), Outcome::NoEntry);
    }
    for (const char* tUri :
         {"", "http://example.com", "https://", "ftp://example.com/", "no address", "file:"}) {
        SCOPED_TRACE(tUri);
        GRef<Server> tServer = server(QStringLiteral("x"), true);
        tServer->setUri(QLatin1String(tUri));
        EXPECT_EQ(mServers.add(*tServer), Outcome::Invalid);
        EXPECT_EQ(mServers.change(0, *tServer, {}), Outcome::Invalid);
        EXPECT_EQ(mServers.setDefault(QLatin1String(tUri), {}, {}), Outcome::Invalid);
    }
    GRef<Server> tLong = server(QString(8 * 1024 * 1024, u'x'));
    EXPECT_EQ(mServers.add(*tLong), Outcome::Invalid) << "the list would not fit into an answer";
    EXPECT_EQ(list(), "a*");
    EXPECT_EQ(mServers.revision(), tRevision);
}

TEST_F(ServerTableTest, ProvidedServerComesOnceOnly)
{
    ASSERT_EQ(mServers.provide(QStringLiteral("file:///srv/first")), Outcome::Done);
    EXPECT_EQ(list(), "first*");
    ASSERT_EQ(mServers.remove(0, {}), Outcome::Done);
    ASSERT_EQ(mServers.provide(QStringLiteral("file:///srv/first")), Outcome::Done);
    EXPECT_EQ(list(), "") << "who removed it does not want it back with the next start";
}

TEST_F(ServerTableTest, TenThousandServers)
{
    ASSERT_TRUE(mStore.database().execute("PRAGMA synchronous = OFF"));
    for (int i = 0; i < 10000; ++i) { // each with its own transaction
        ASSERT_EQ(mServers.add(*server(QString::number(i))), Outcome::Done);
    }
    QElapsedTimer tTimer;
    tTimer.start();
    ASSERT_EQ(mServers.entries()->size(), 10000);
    RecordProperty("entries_ms", static_cast<int>(tTimer.elapsed()));
    ASSERT_EQ(mServers.change(9999, *server(QStringLiteral("last"), true), {}), Outcome::Done);
    EXPECT_EQ(mServers.defaultEntry()->mName, QStringLiteral("last"));
}
