#include "ClientTest.h"

static Script named(const QList<QByteArray>& pNames)
{
    QList<QByteArray> tServers;
    for (const QByteArray& tName : pNames) {
        tServers.append(R"({"name": ")" + tName +
                        R"(", "uri": "https://x.org", "userName": "", "enabled": true,
            "default": false, "savePassword": false})");
    }
    return answers("getServerList", R"({"revision": 5, "servers": [)" + tServers.join(',') + "]}");
}

// The part of a call that describes a server; flags: "e" for enabled, "d" for the default, "s" for saving the
// password.
static QByteArray server(const QByteArray& pName, const QByteArray& pUri, const QByteArray& pUser,
                         const QByteArray& pFlags, const QByteArray& pPassword = {})
{
    const auto tFlag = [&](char pFlag) { return QByteArray(pFlags.contains(pFlag) ? "true" : "false"); };
    return R"("server":{"default":)" + tFlag('d') + R"(,"enabled":)" + tFlag('e') + R"(,"name":)" + pName +
           (pPassword.isNull() ? QByteArray() : R"(,"password":)" + pPassword) + R"(,"savePassword":)" +
           tFlag('s') + R"(,"uri":")" + pUri + R"(","userName":)" + pUser + '}';
}

static QList<QByteArray> changes(const QByteArray& pIndex, const QByteArray& pServer)
{
    return guarded(
        {"getServerList", R"(changeServer {"index":)" + pIndex + R"(,"revision":5,)" + pServer + '}'});
}

static QList<QByteArray> removes(const QByteArray& pIndex)
{
    return guarded({"getServerList", R"(removeServer {"index":)" + pIndex + R"(,"revision":5})"});
}

static QByteArray notUnique(const QByteArray& pName)
{
    return "The name '" + pName + "' does not uniquely identify a server.\n";
}

static const QByteArray sAlpha = server(R"("alpha")", "https://alpha.example.org/kdml", R"("anna")", "eds");
static const QByteArray sEnabled = "\nThe server was enabled successfully.\n";
static const QList<QByteArray> sAsked = guarded({"getServerList"});

TEST(ListServersTest, PrintsABlockForEach)
{
    check({
        ok("list-servers",
           "1) alpha\n    Address: https://alpha.example.org/kdml\n    Username: anna\n    Enabled: yes\n"
           "    Default server: yes\n\n"
           "2) beta\n    Address: /srv/up dates\n    Username: \n    Enabled: no\n    Default server: no\n\n"
           "3) alphabet\n    Address: https://c.example.org\n    Username: \n    Enabled: yes\n"
           "    Default server: no\n\n",
           {"getServerList"}),
        ok("list-servers",
           "1) %2 %1\n    Address: https://x.org\n    Username: \n    Enabled: yes\n    Default server: "
           "no\n\n",
           {"getServerList"}, {named({"%2 %1"})}),
        ok("list-servers", "", {"getServerList"}, {named({})}),
        fails("list-servers", "Failed to get server list!\n", {"getServerList"}, {refuses("getServerList")}),
    });
}

TEST(AddServerTest, AddsWhatTheOptionsSay)
{
    const auto tAdds = [](const Words& pOptions, const QByteArray& pServer, const QByteArray& pOut = {},
                          const QByteArray& pInput = {}) {
        return ok(Words("add-server") + pOptions, pOut, sAsked + QList{"addServer {" + pServer + '}'}, {},
                  pInput);
    };
    const QByteArray tUri = "https://h.org/x";
    check({
        tAdds({"-a", "/srv/ä b", "-n", "alpha", "-u", "%1"},
              server(R"("alpha")", "file:///srv/%C3%A4%20b", R"("%1")", "")),
        tAdds("-a https://h.org/x -de", server("null", tUri, "null", "ed"), sEnabled),
        tAdds("-a https://h.org/x -eE", server("null", tUri, "null", "")),
        tAdds("-a https://h.org/x --password=", server("null", tUri, "null", "s", R"("")")),
        tAdds("-a https://h.org/x --password", server("null", tUri, "null", "s", R"("p q")"),
              "Server password: ", "p q\n"),
        tAdds("-a https://h.org/x --password --name=x", server("null", tUri, "null", "s", R"("--name=x")")),
    });
}

TEST(AddServerTest, RefusesWithoutAChange)
{
    check({
        fails("add-server -p", "Server address must be specified\n", sAsked),
        // no prompt for a password that is not needed
        fails("add-server -a http://h.org -p", "Invalid or unsupported URL: http://h.org\n", sAsked),
        fails("add-server -a/x", "Failed to get server list!\n", sAsked, {refuses("getServerList")}),
        fails("add-server -a/x -e", "",
              sAsked + QList{"addServer {" + server("null", "file:///x", "null", "e") + '}'},
              {refuses("addServer")}),
    });
}

TEST(UpdateServerTest, ChangesTheServerThatIsMeant)
{
    check({
        ok("update-server -m alpha", "", changes("0", sAlpha)),
        ok("update-server --match-name=nobody -M 1 -e", sEnabled, changes("0", sAlpha)),
        ok("update-server -M 002 -n b -u u -d --password=p", "",
           changes("1", server(R"("b")", "file:///srv/up%20dates", R"("u")", "ds", R"("p")"))),
        // The suggested name is that of the old address.
        ok("update-server -M2 --name= -a https://new.org", "",
           changes("1", server(R"("up dates")", "https://new.org", R"("")", ""))),
    });
}

TEST(UpdateServerTest, RefusesWithoutAChange)
{
    check({
        fails("update-server --match-name=", "Server name or number must be specified.\n"),
        fails("update-server -M0 -malpha", "Invalid server number 0.\n"),
        fails("update-server -Mabc%1", "Invalid server number abc%1.\n"),
        fails("update-server -M007", "Invalid server number 7.\n", sAsked),
        fails("update-server -malph", notUnique("alph"), sAsked),
        fails("update-server -M1 -ah", "Invalid or unsupported URL: h\n", sAsked),
        fails("update-server -M1 -e", "", changes("0", sAlpha), {refuses("changeServer")}),
    });
}

TEST(RemoveServerTest, RemovesTheServerThatIsMeant)
{
    check({
        ok("remove-server -M2", "", removes("1"), {named({"a", "b"})}),
        ok("remove-server -malpha", "", removes("1"), {named({"alphabet", "alpha", "beta"})}),
        ok("remove-server -mbet", "", removes("1"), {named({"alpha", "beta"})}),
        // two exact matches are ignored
        ok("remove-server -mmain", "", removes("2"), {named({"main", "main", "mainline"})}),
        ok("remove-server -mnobody -M1", "", removes("0")),
        fails("remove-server -M1", "", removes("0"), {answers("removeServer", "false")}),
    });
}

TEST(RemoveServerTest, RefusesWithoutAChange)
{
    check({
        fails("remove-server", "Server name or number must be specified.\n", sAsked),
        fails("remove-server --match-name=", "Server name to match against must not be empty.\n", sAsked),
        fails("remove-server -M004", "Invalid server number 004\n", sAsked),
        fails("remove-server -M0 -ma", "Invalid server number 0\n", sAsked),
        fails("remove-server -M1", "Invalid server number 1\n", sAsked, {named({})}),
        fails("remove-server -mALPHA", notUnique("ALPHA"), sAsked),
        fails("remove-server -m%1", notUnique("%1"), sAsked),
        fails("remove-server -mmain", notUnique("main"), sAsked, {named({"main", "main", "main1", "main2"})}),
        fails("remove-server -M1", "Failed to get server list!\n", sAsked, {refuses("getServerList")}),
    });
}
