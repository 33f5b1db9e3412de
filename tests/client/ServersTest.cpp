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

static QByteArray server(const QByteArray& pName, const QByteArray& pUri, const QByteArray& pUser,
                         bool pEnabled, bool pDefault, bool pSavePassword, const QByteArray& pPassword = {})
{
    const auto tBool = [](bool pValue) { return QByteArray(pValue ? "true" : "false"); };
    return R"("server":{"default":)" + tBool(pDefault) + R"(,"enabled":)" + tBool(pEnabled) + R"(,"name":)" +
           pName + (pPassword.isNull() ? QByteArray() : R"(,"password":)" + pPassword) +
           R"(,"savePassword":)" + tBool(pSavePassword) + R"(,"uri":)" + pUri + R"(,"userName":)" + pUser +
           '}';
}

static QByteArray adds(const QByteArray& pServer)
{
    return "addServer {" + pServer + '}';
}

static QByteArray changes(const QByteArray& pIndex, const QByteArray& pServer)
{
    return R"(changeServer {"index":)" + pIndex + R"(,"revision":5,)" + pServer + '}';
}

static QByteArray removes(const QByteArray& pIndex)
{
    return R"(removeServer {"index":)" + pIndex + R"(,"revision":5})";
}

static const QByteArray sAlpha =
    server(R"("alpha")", R"("https://alpha.example.org/kdml")", R"("anna")", true, true, true);

TEST(ListServersTest, PrintsABlockForEach)
{
    check({
        ok({"list-servers"},
           "1) alpha\n    Address: https://alpha.example.org/kdml\n    Username: anna\n    Enabled: yes\n"
           "    Default server: yes\n\n"
           "2) beta\n    Address: /srv/up dates\n    Username: \n    Enabled: no\n    Default server: no\n\n"
           "3) alphabet\n    Address: https://c.example.org\n    Username: \n    Enabled: yes\n"
           "    Default server: no\n\n",
           {"getServerList"}),
        ok({"list-servers"},
           "1) %2 %1\n    Address: https://x.org\n    Username: \n    Enabled: yes\n    Default server: "
           "no\n\n",
           {"getServerList"}, {named({"%2 %1"})}),
        ok({"list-servers"}, "", {"getServerList"}, {named({})}),
        fails({"list-servers"}, "Failed to get server list!\n", {"getServerList"},
              {refuses("getServerList")}),
    });
}

TEST_F(ClientTest, ListsTenThousandServers)
{
    QList<QByteArray> tNames;
    QByteArray tExpected;
    for (int i = 1; i <= 10000; ++i) {
        const QByteArray tNumber = QByteArray::number(i);
        tNames.append("s" + tNumber);
        tExpected +=
            tNumber + ") s" + tNumber +
            "\n    Address: https://x.org\n    Username: \n    Enabled: yes\n    Default server: no\n\n";
    }
    named(tNames)(mService);
    EXPECT_EQ(mInstallation.run({"list-servers"}).mOut, tExpected);
}

TEST(ChangeServersTest, AllGuardThemselves)
{
    checkGuards({"add-server", "--address=/x"});
    checkGuards({"update-server", "-M1"});
    checkGuards({"remove-server"});
}

TEST(AddServerTest, AddsWhatTheOptionsSay)
{
    const auto tAdds = [](const QList<QByteArray>& pOptions, const QByteArray& pServer,
                          const QByteArray& pOut = {}, const QByteArray& pInput = {}) {
        return ok(QList<QByteArray>{"add-server"} + pOptions, pOut, guarded({"getServerList", adds(pServer)}),
                  {}, pInput);
    };
    const QByteArray tUri = R"("https://h.org/x")";
    const QByteArray tEnabled = "\nThe server was enabled successfully.\n";
    check({
        tAdds({"-a", "https://h.org/x"}, server("null", tUri, "null", false, false, false)),
        tAdds({"-a", "/srv/ä b", "-n", "alpha", "-u", "%1"},
              server(R"("alpha")", R"("file:///srv/%C3%A4%20b")", R"("%1")", false, false, false)),
        tAdds({"-a", "https://h.org/x", "-de"}, server("null", tUri, "null", true, true, false), tEnabled),
        tAdds({"-a", "https://h.org/x", "-eE"}, server("null", tUri, "null", false, false, false)),
        tAdds({"-a", "https://h.org/x", "--disable", "--enable"},
              server("null", tUri, "null", true, false, false), tEnabled),
        tAdds({"-a", "https://h.org/x", "--password=p"},
              server("null", tUri, "null", false, false, true, R"("p")")),
        tAdds({"-a", "https://h.org/x", "--password="},
              server("null", tUri, "null", false, false, true, R"("")")),
        tAdds({"-a", "https://h.org/x", "--password"},
              server("null", tUri, "null", false, false, true, R"("p q")"), "Server password: ", "p q\n"),
        tAdds({"-a", "https://h.org/x", "--password", "--name=x"},
              server("null", tUri, "null", false, false, true, R"("--name=x")")),
    });
}

TEST(AddServerTest, RefusesWithoutAChange)
{
    const auto tRefuses = [](const QList<QByteArray>& pOptions, const QByteArray& pError) {
        return fails(QList<QByteArray>{"add-server"} + pOptions, pError + '\n', guarded({"getServerList"}));
    };
    check({
        tRefuses({}, "Server address must be specified"),
        tRefuses({"-p"}, "Server address must be specified"),
        // nobody is asked for a password in vain
        tRefuses({"-a", "word", "-p"}, "Invalid or unsupported URL: word"),
        tRefuses({"-a", "http://h.org"}, "Invalid or unsupported URL: http://h.org"),
        tRefuses({"-a", ""}, "Invalid or unsupported URL: "),
        fails({"add-server", "-a/x"}, "Failed to get server list!\n", guarded({"getServerList"}),
              {refuses("getServerList")}),
        fails({"add-server", "-a/x", "-e"}, "",
              guarded({"getServerList", adds(server("null", R"("file:///x")", "null", true, false, false))}),
              {refuses("addServer")}),
    });
}

TEST(UpdateServerTest, ChangesTheServerThatIsMeant)
{
    const auto tChanges = [](const QList<QByteArray>& pOptions, const QByteArray& pIndex,
                             const QByteArray& pServer, const QByteArray& pOut = {}) {
        return ok(QList<QByteArray>{"update-server"} + pOptions, pOut,
                  guarded({"getServerList", changes(pIndex, pServer)}));
    };
    const QByteArray tBetaUri = R"("file:///srv/up%20dates")";
    check({
        tChanges({"--match-index=1"}, "0", sAlpha),
        tChanges({"-m", "alpha"}, "0", sAlpha),
        tChanges({"--match-name=nobody", "-M", "1"}, "0", sAlpha),
        tChanges({"-M1", "-e"}, "0", sAlpha, "\nThe server was enabled successfully.\n"),
        tChanges({"-M", "002", "-n", "b", "-u", "u", "-d", "--password=p"}, "1",
                 server(R"("b")", tBetaUri, R"("u")", false, true, true, R"("p")")),
        // The suggested name is that of the address before the change.
        tChanges({"-M2", "--name=", "-a", "https://new.org"}, "1",
                 server(R"("up dates")", R"("https://new.org")", R"("")", false, false, false)),
    });
}

TEST(UpdateServerTest, RefusesWithoutAChange)
{
    const QByteArray tNone = "Server name or number must be specified.\n";
    check({
        fails({"update-server"}, tNone),
        fails({"update-server", "--match-name="}, tNone),
        fails({"update-server", "-M0", "-malpha"}, "Invalid server number 0.\n"),
        fails({"update-server", "-Mabc%1"}, "Invalid server number abc%1.\n"),
        fails({"update-server", "-M", "-1"}, "Invalid server number -1.\n"),
        fails({"update-server", "-M2147483648"}, "Invalid server number 2147483648.\n"),
        fails({"update-server", "-M007"}, "Invalid server number 7.\n", guarded({"getServerList"})),
        fails({"update-server", "-malph"}, "The name 'alph' does not uniquely identify a server.\n",
              guarded({"getServerList"})),
        fails({"update-server", "-M1", "-ah"}, "Invalid or unsupported URL: h\n", guarded({"getServerList"})),
        fails({"update-server", "-M1", "-e"}, "", guarded({"getServerList", changes("0", sAlpha)}),
              {refuses("changeServer")}),
    });
}

TEST(RemoveServerTest, RemovesTheServerThatIsMeant)
{
    const auto tRemoves = [](const QByteArray& pSelector, const QList<QByteArray>& pNames,
                             const QByteArray& pIndex) {
        return ok({"remove-server", pSelector}, "", guarded({"getServerList", removes(pIndex)}),
                  {named(pNames)});
    };
    check({
        tRemoves("-M2", {"a", "b"}, "1"),
        tRemoves("-malpha", {"alphabet", "alpha", "beta"}, "1"),
        tRemoves("-mbet", {"alpha", "beta"}, "1"),
        tRemoves("-mmain", {"main", "main", "mainline"}, "2"),
        // two exact matches are set aside
        ok({"remove-server", "-mnobody", "-M1"}, "", guarded({"getServerList", removes("0")})),
        fails({"remove-server", "-M1"}, "", guarded({"getServerList", removes("0")}),
              {refuses("removeServer")}),
        fails({"remove-server", "-M1"}, "", guarded({"getServerList", removes("0")}),
              {answers("removeServer", "false")}),
    });
}

TEST(RemoveServerTest, RefusesWithoutAChange)
{
    const auto tRefuses = [](const QList<QByteArray>& pOptions, const QList<QByteArray>& pNames,
                             const QByteArray& pError) {
        return fails(QList<QByteArray>{"remove-server"} + pOptions, pError + '\n', guarded({"getServerList"}),
                     {named(pNames)});
    };
    const auto tNotUnique = [](const QByteArray& pName) {
        return "The name '" + pName + "' does not uniquely identify a server.";
    };
    check({
        tRefuses({}, {"a"}, "Server name or number must be specified."),
        tRefuses({"--match-name="}, {"a"}, "Server name to match against must not be empty."),
        tRefuses({"-M2"}, {"a"}, "Invalid server number 2"),
        tRefuses({"-M007"}, {"a"}, "Invalid server number 007"),
        tRefuses({"-M0"}, {"a"}, "Invalid server number 0"),
        tRefuses({"-Mx", "-ma"}, {"a"}, "Invalid server number x"),
        tRefuses({"-M1"}, {}, "Invalid server number 1"),
        tRefuses({"-ma"}, {}, tNotUnique("a")),
        tRefuses({"-mALPHA"}, {"alpha"}, tNotUnique("ALPHA")),
        tRefuses({"-m%1"}, {"alpha"}, tNotUnique("%1")),
        tRefuses({"-malph"}, {"alpha", "alphabet"}, tNotUnique("alph")),
        tRefuses({"-mmain"}, {"main", "main"}, tNotUnique("main")),
        tRefuses({"-mmain"}, {"main", "main", "main1", "main2"}, tNotUnique("main")),
        fails({"remove-server", "-M1"}, "Failed to get server list!\n", guarded({"getServerList"}),
              {refuses("getServerList")}),
    });
}
