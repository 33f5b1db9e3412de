#include "ClientTest.h"

static const QByteArray sServerLine = "Default server: https://updates.example.org/kdml (username=anna)\n";
static const QByteArray sProxyLine = "Proxy: proxy.example.org:3128 (username=paul)\n";
static const QByteArray sDataLine = "Data directory: /srv/kdml\n";
static const QByteArray sAppLangLine = "Application language: Deutsch (de)\n";
static const QByteArray sDataLangLine = "Data language: français (fr)\n";

static const QByteArray sGetServer = R"(getDefaultServer {"withPassword":false})";
static const QByteArray sGetServerForChange = R"(getDefaultServer {"withPassword":true})";
static const QByteArray sGetProxy = "getNetProxySettings";

static QByteArray getValue(const QByteArray& pName)
{
    return R"(getConfigValue {"default":null,"name":")" + pName + R"("})";
}

static QByteArray setServer(const QByteArray& pUri, const QByteArray& pUser, const QByteArray& pPassword)
{
    return R"(updateDefaultServer {"password":")" + pPassword + R"(","uri":")" + pUri + R"(","user":")" +
           pUser + R"("})";
}

static QByteArray setValue(const QByteArray& pName, const QByteArray& pValue)
{
    return R"(setConfigValue {"name":")" + pName + R"(","value":")" + pValue + R"("})";
}

static Script proxy(const QByteArray& pMode, const QByteArray& pFlags)
{
    return answers("getNetProxySettings", R"({"mode": )" + pMode + R"(, "proxy": {)" + pFlags +
                                              R"(, "host": "h%2", "port": 1, "user": "%1", "password": null,
                                                "passwordChanged": false}})");
}

static Script server(const QByteArray& pUri, const QByteArray& pUser)
{
    return answers("getDefaultServer",
                   R"({"uri": ")" + pUri + R"(", "user": ")" + pUser + R"(", "password": null})");
}

TEST(ShowSettingsTest, PrintsTheSectionsInTheirOrder)
{
    check({
        ok({"show-settings"}, sServerLine + sProxyLine + sDataLine + sAppLangLine + sDataLangLine,
           {sGetServer, sGetProxy, "getKdmlDataDirectory", "getLanguages"}),
        ok({"show-settings", "--data-language", "--server"}, sServerLine + sDataLangLine,
           {sGetServer, "getLanguages"}),
        ok({"show-settings", "-lLdP"}, sProxyLine + sDataLine + sAppLangLine + sDataLangLine,
           {sGetProxy, "getKdmlDataDirectory", "getLanguages"}),
        ok({"show-settings", "--config-var=b%2", "--config-var=x", "--config-var=x"},
           "b%2: 1%1\"\n2\nx: 1%1\"\n2\nx: 1%1\"\n2\n", {getValue("b%2"), getValue("x"), getValue("x")},
           {answers("getConfigValue", R"("1%1\"\n2")")}),
        ok({"show-settings", "--config-var=my.PassWord1"}, "my.PassWord1: *****\n",
           {getValue("my.PassWord1")}, {answers("getConfigValue", R"("aü😀5")")}),
        ok({"show-settings", "--config-var=password"}, "password: \n", {getValue("password")},
           {answers("getConfigValue", R"("")")}),
        ok({"show-settings", "--config-var=none"}, "none: \n", {getValue("none")},
           {refuses("getConfigValue")}),
    });
}

TEST(ShowSettingsTest, ShowsAddressesAndProxiesAsTheyAre)
{
    check({
        ok({"show-settings", "-s"}, "Default server: /srv/up dates (username=)\n", {sGetServer},
           {server("file:///srv/up%20dates", "")}),
        ok({"show-settings", "-s"}, "Default server: https://h/%41%2?q=%1 x (username=%1 u)\n", {sGetServer},
           {server("https://h/%41%2?q=%1 x", "%1 u")}),
        ok({"show-settings", "-s"}, "Default server: no :// address (username=u)\n", {sGetServer},
           {server("no :// address", "u")}),
        ok({"show-settings", "-P"}, "Proxy: h1:1 (username=%1)\n", {sGetProxy},
           {proxy("0", R"("enabled": true, "configured": true)")}),
        ok({"show-settings", "-P"}, "Proxy: disabled\n", {sGetProxy},
           {proxy("2", R"("enabled": true, "configured": false)")}),
        ok({"show-settings", "-P"}, "Proxy: disabled\n", {sGetProxy},
           {proxy("0", R"("enabled": false, "configured": true)")}),
        ok({"show-settings", "-P"}, "Proxy: Using operating system settings\n", {sGetProxy},
           {proxy("1", R"("enabled": true, "configured": true)")}),
        ok({"show-settings", "-P"}, "Proxy: \n", {sGetProxy},
           {proxy("3", R"("enabled": true, "configured": true)")}),
        ok({"show-settings", "-d"}, "Data directory: \n", {"getKdmlDataDirectory"},
           {answers("getKdmlDataDirectory", R"("")")}),
    });
}

TEST(ShowSettingsTest, EndsAtAFailedQueryExceptThatOfTheLanguages)
{
    check({
        fails({"show-settings"}, "Failed to query current server\n", {sGetServer},
              {refuses("getDefaultServer")}),
        Case({"show-settings"}, sServerLine, "Failed to query proxy settings\n", 1, {sGetServer, sGetProxy},
             {refuses("getNetProxySettings")}),
        Case({"show-settings"}, sServerLine + sProxyLine, "Failed to query the kdml data directory\n", 1,
             {sGetServer, sGetProxy, "getKdmlDataDirectory"}, {answers("getKdmlDataDirectory", "null")}),
        Case({"show-settings", "-lL", "--config-var=a"},
             "Application language:  ()\nData language:  ()\na: value\n", "Failed to query languages.\n", 0,
             {"getLanguages", getValue("a")}, {refuses("getLanguages")}),
    });
}

TEST(UpdateSettingsTest, GuardsItself)
{
    checkGuards({"update-settings", "--data-dir=/x"});
    check({ok({"update-settings"}, "")});
}

// The frame counts as one option however often it was given.
TEST(SettingsTest, ASocketGivenTwiceCountsAsAnOption)
{
    const Installation tInstallation;
    ScriptedService tService(tInstallation.socketPath());
    const QByteArray tSocket = "--socket=" + tInstallation.socketPath().toUtf8();
    const struct
    {
        QByteArray mCommand;
        QByteArray mOut;
    } tRuns[] = {{"show-settings", ""}, {"update-settings", sApplied}};
    for (const auto& tRun : tRuns) {
        expectResult(tInstallation.run({tRun.mCommand, tSocket, tSocket}), tRun.mOut, "", 0);
    }
    EXPECT_EQ(text(tService.calls()), guarded({"reloadConfig"}).join('\n'));
    EXPECT_EQ(tInstallation.run({"show-settings", tSocket}).mOut.count('\n'), 5);
    EXPECT_EQ(tInstallation.run({"update-settings", tSocket}).mOut, "");
}

TEST(UpdateSettingsTest, SetsTheDefaultServer)
{
    const auto tSets = [](const QList<QByteArray>& pOptions, const QByteArray& pCall,
                          const QByteArray& pOut = {}, const QByteArray& pInput = {}) {
        return ok(QList<QByteArray>{"update-settings"} + pOptions, pOut + sApplied,
                  guarded({sGetServerForChange, pCall, "reloadConfig"}), {}, pInput);
    };
    const QByteArray tOld = "https://updates.example.org/kdml";
    check({
        tSets({"--server=https://h.org/a b%20ä"},
              setServer("https://h.org/a%20b%20%C3%A4", "anna", "secret")),
        tSets({"--server=HTTPS://H.org"}, setServer("https://h.org", "anna", "secret")),
        tSets({"--server=/srv/x y"}, setServer("file:///srv/x%20y", "anna", "secret")),
        tSets({"--server=file:///srv/x"}, setServer("file:///srv/x", "anna", "secret")),
        tSets({"--server=bad", "--server=https://good.org"}, setServer("https://good.org", "anna", "secret")),
        tSets({"--user=q\"%1 я"}, setServer(tOld, R"(q\"%1 я)", "secret")),
        tSets({"--user="}, setServer(tOld, "", "secret")),
        tSets({"--password=a b"}, setServer(tOld, "anna", "a b")),
        tSets({"--password="}, setServer(tOld, "anna", "")),
        tSets({"--password"}, setServer(tOld, "anna", "ty ped"), "Server password: ", "ty ped\nmore\n"),
        tSets({"-p"}, setServer(tOld, "anna", ""), "Server password: ", "\n"),
        tSets({"-p"}, setServer(tOld, "anna", ""), "Server password: "),
    });
}

TEST(UpdateSettingsTest, RefusesWhatIsNoServer)
{
    const auto tRefused = [](const QByteArray& pAddress) {
        return fails({"update-settings", "--server=" + pAddress, "--password"},
                     "Invalid or unsupported URL: " + pAddress + "\n", guarded({sGetServerForChange}));
    };
    check({
        tRefused("host"),
        tRefused("http://h.org/%1"),
        tRefused("ftp://h.org"),
        tRefused(""),
        tRefused("https://h org"),
        tRefused("https://h.org:99999"),
        fails({"update-settings", "-ux"}, "Failed to query current server\n", guarded({sGetServerForChange}),
              {refuses("getDefaultServer")}),
        fails({"update-settings", "-ux"}, "Failed to update default server\n",
              guarded({sGetServerForChange, setServer("https://updates.example.org/kdml", "x", "secret")}),
              {refuses("updateDefaultServer")}),
    });
}

static QByteArray setProxy(const QByteArray& pMode, bool pOn, const QByteArray& pHost,
                           const QByteArray& pPort, const QByteArray& pUser, const QByteArray& pPassword,
                           bool pChanged)
{
    const QByteArray tOn = pOn ? "true" : "false";
    return R"(setNetProxySettings {"mode":)" + pMode + R"(,"proxy":{"configured":)" + tOn + R"(,"enabled":)" +
           tOn + R"(,"host":)" + pHost + R"(,"password":)" + pPassword + R"(,"passwordChanged":)" +
           (pChanged ? "true" : "false") + R"(,"port":)" + pPort + R"(,"user":)" + pUser + "}}";
}

TEST(UpdateSettingsTest, SetsTheProxy)
{
    const QByteArray tHost = R"("proxy.example.org")";
    const QByteArray tUser = R"("paul")";
    const auto tSets = [](const QList<QByteArray>& pOptions, const QByteArray& pCall,
                          const QByteArray& pOut = {}, const QByteArray& pInput = {}) {
        return ok(QList<QByteArray>{"update-settings"} + pOptions, pOut + sApplied,
                  guarded({sGetProxy, pCall, "reloadConfig"}), {}, pInput);
    };
    check({
        tSets({"--proxy-mode=os"}, setProxy("1", true, tHost, "3128", tUser, "null", false)),
        tSets({"--proxy=h:65535"}, setProxy("2", true, R"("h")", "65535", tUser, "null", false)),
        tSets({"--proxy=:1"}, setProxy("2", false, R"("")", "1", tUser, "null", false)),
        tSets({"--proxy="}, setProxy("2", false, "null", "0", "null", "null", false)),
        tSets({"--proxy-user=x", "-P", ""}, setProxy("2", false, "null", "0", R"("x")", "null", false)),
        tSets({"--proxy-password=x"}, setProxy("2", true, tHost, "3128", tUser, R"("x")", true)),
        tSets({"--proxy-password"}, setProxy("2", true, tHost, "3128", tUser, R"("x")", true),
              "Proxy password: ", "x\n"),
    });
}

TEST(UpdateSettingsTest, RefusesWhatIsNoProxy)
{
    for (const char* tProxy : {"h", "h:0", "h:65536", "h:-1", "h:abc", "h:1:2", "h:", "h: 1x"}) {
        check({fails({"update-settings", QByteArray("--proxy=") + tProxy},
                     QByteArray("Invalid proxy '") + tProxy + "'\n", guarded({sGetProxy}))});
    }
    check({
        fails({"update-settings", "--proxy=x", "--proxy-mode=OS"}, "Invalid proxy mode OS\n",
              guarded({sGetProxy})),
        fails({"update-settings", "--proxy=h:1"}, "Failed to query proxy settings\n", guarded({sGetProxy}),
              {refuses("getNetProxySettings")}),
        fails({"update-settings", "--proxy=:1"}, "Failed to update proxy settings\n",
              guarded({sGetProxy, setProxy("2", false, R"("")", "1", R"("paul")", "null", false)}),
              {refuses("setNetProxySettings")}),
        // What an earlier group has sent stays sent.
        fails({"update-settings", "--proxy=x", "--user=y"}, "Invalid proxy 'x'\n",
              guarded({sGetServerForChange, setServer("https://updates.example.org/kdml", "y", "secret"),
                       sGetProxy})),
    });
}

static const QByteArray sAppList = "Available application languages:\n  da: dansk\n  de: Deutsch\n";
static const QByteArray sDataList = "Available data languages:\n  de: Deutsch\n  fr: français\n";
static const QByteArray sSetApp = R"(setLanguages {"app":"de","data":null})";
static const QByteArray sSetData = R"(setLanguages {"app":null,"data":"fr"})";

TEST(UpdateSettingsTest, SetsOrListsTheLanguages)
{
    check({
        ok({"update-settings", "-Lfr", "-lde"}, sApplied, guarded({sSetApp, sSetData, "reloadConfig"})),
        ok({"update-settings", "--app-language"}, sAppList, guarded({})),
        ok({"update-settings", "--config-var=a:1", "-Lfr", "-l"}, sAppList, guarded({})),
        ok({"update-settings", "--data-dir=x", "-lde", "-L"}, sDataList,
           guarded({R"(setKdmlDataDirectory {"path":"x"})", sSetApp})),
        Case({"update-settings", "-Lfr", "--app-language=xx%1"}, sAppList,
             "Invalid application language 'xx%1'\n", 1, guarded({})),
        Case({"update-settings", "--app-language=DE"}, sAppList, "Invalid application language 'DE'\n", 1,
             guarded({})),
        Case({"update-settings", "--data-language="}, sDataList, "Invalid data language ''\n", 1,
             guarded({})),
        fails({"update-settings", "-lde", "-Lfr"}, "Failed to set the application language\n",
              guarded({sSetApp}), {refuses("setLanguages")}),
        fails({"update-settings", "-Lfr"}, "Failed to set the data language\n", guarded({sSetData}),
              {refuses("setLanguages")}),
    });
}

TEST(UpdateSettingsTest, SetsTheDataDirectoryAndVariables)
{
    check({
        ok({"update-settings", "--data-dir="}, sApplied,
           guarded({R"(setKdmlDataDirectory {"path":""})", "reloadConfig"})),
        fails({"update-settings", "--data-dir=x", "-lde"}, "Failed to set the kdml data directory\n",
              guarded({R"(setKdmlDataDirectory {"path":"x"})"}), {refuses("setKdmlDataDirectory")}),
        ok({"update-settings", "--config-var=a:b:c", "--config-var", "a:", "--config-var=:b"}, sApplied,
           guarded({setValue("a", "b:c"), setValue("a", ""), setValue("", "b"), "reloadConfig"})),
        fails({"update-settings", "--config-var=a:1", "--config-var=%1", "--config-var=c:2"},
              "Invalid argument to --config-var: '%1'\n", guarded({setValue("a", "1")})),
        fails({"update-settings", "--config-var=%1:2"}, "Failed to set configuration variable '%1'\n",
              guarded({setValue("%1", "2")}), {refuses("setConfigValue")}),
        fails({"update-settings", "--config-var=a:1"}, "Failed to reload the service configuration\n",
              guarded({setValue("a", "1"), "reloadConfig"}), {refuses("reloadConfig")}),
    });
}

TEST(SettingsTest, CarriesAnyValueUnharmed)
{
    const QByteArray tOdd = "line\nbreak \"quoted\" 'x' \\ %1 %n 100% \t日本語 😀";
    const QByteArray tOddJson = R"(line\nbreak \"quoted\" 'x' \\ %1 %n 100% \t日本語 😀)";
    check({
        ok({"update-settings", "--config-var=a:" + tOdd}, sApplied,
           guarded({setValue("a", tOddJson), "reloadConfig"})),
        ok({"show-settings", "--config-var=a"}, "a: " + tOdd + '\n', {getValue("a")},
           {answers("getConfigValue", '"' + tOddJson + '"')}),
        // Bytes that are no text become the sign for that.
        ok({"update-settings", "--config-var=a:x\xff\xfey"}, sApplied,
           guarded({setValue("a", "x\xef\xbf\xbd\xef\xbf\xbdy"), "reloadConfig"})),
    });

    // One argument takes at most 128 KiB on Linux, and an answer up to 8 MiB.
    const QByteArray tLong(120 * 1024, 'x');
    const QByteArray tMegabyte(1024 * 1024, 'y');
    check({
        ok({"update-settings", "--config-var=a:" + tLong}, sApplied,
           guarded({setValue("a", tLong), "reloadConfig"})),
        ok({"show-settings", "--config-var=a"}, "a: " + tMegabyte + '\n', {getValue("a")},
           {answers("getConfigValue", '"' + tMegabyte + '"')}),
        ok({"update-settings", "--password"}, "Server password: " + sApplied,
           guarded({sGetServerForChange, setServer("https://updates.example.org/kdml", "anna", tLong),
                    "reloadConfig"}),
           {}, tLong + '\n'),
    });
}
