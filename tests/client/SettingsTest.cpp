#include "ClientTest.h"

static const QByteArray sServerLine = "Default server: https://updates.example.org/kdml (username=anna)\n";
static const QByteArray sProxyLine = "Proxy: proxy.example.org:3128 (username=paul)\n";
static const QByteArray sDataLine = "Data directory: /srv/kdml\n";
static const QByteArray sAppLangLine = "Application language: Deutsch (de)\n";
static const QByteArray sDataLangLine = "Data language: français (fr)\n";

static const QByteArray sGetServer = R"(getDefaultServer {"withPassword":false})";
static const QByteArray sGetServerForChange = R"(getDefaultServer {"withPassword":true})";
static const QByteArray sGetProxy = "getNetProxySettings";
static const QByteArray sOldUri = "https://updates.example.org/kdml";

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

static QByteArray setDataDir(const QByteArray& pPath)
{
    return R"(setKdmlDataDirectory {"path":")" + pPath + R"("})";
}

// With pPassword null the password stays unchanged.
static QByteArray setProxy(const QByteArray& pMode, bool pOn, const QByteArray& pHost,
                           const QByteArray& pPort, const QByteArray& pUser,
                           const QByteArray& pPassword = "null")
{
    const QByteArray tOn = pOn ? "true" : "false";
    return R"(setNetProxySettings {"mode":)" + pMode + R"(,"proxy":{"configured":)" + tOn + R"(,"enabled":)" +
           tOn + R"(,"host":)" + pHost + R"(,"password":)" + pPassword + R"(,"passwordChanged":)" +
           (pPassword == "null" ? "false" : "true") + R"(,"port":)" + pPort + R"(,"user":)" + pUser + "}}";
}

static Case shows(const Words& pOptions, const QByteArray& pOut, const QList<QByteArray>& pCalls,
                  const char* pMethod, const QByteArray& pAnswer)
{
    return ok(Words("show-settings") + pOptions, pOut, pCalls, {answers(pMethod, pAnswer)});
}

// Of update-settings: options that are applied with these calls, and options that end it after these.
static Case sets(const Words& pOptions, const QList<QByteArray>& pCalls, const QByteArray& pOut = {},
                 const QByteArray& pInput = {})
{
    return ok(Words("update-settings") + pOptions, pOut + sApplied,
              guarded(pCalls) + QList<QByteArray>{"reloadConfig"}, {}, pInput);
}

static Case stops(const Words& pOptions, const QByteArray& pError, const QList<QByteArray>& pCalls,
                  const QList<Script>& pScripts = {})
{
    return fails(Words("update-settings") + pOptions, pError + '\n', guarded(pCalls), pScripts);
}

TEST(ShowSettingsTest, PrintsTheSectionsInTheirOrder)
{
    check({
        ok("show-settings", sServerLine + sProxyLine + sDataLine + sAppLangLine + sDataLangLine,
           {sGetServer, sGetProxy, "getKdmlDataDirectory", "getLanguages"}),
        ok("show-settings --data-language --server", sServerLine + sDataLangLine,
           {sGetServer, "getLanguages"}),
        ok("show-settings -lLdP", sProxyLine + sDataLine + sAppLangLine + sDataLangLine,
           {sGetProxy, "getKdmlDataDirectory", "getLanguages"}),
        shows("--config-var=b%2 --config-var=x", "b%2: 1%1\"\n2\nx: 1%1\"\n2\n",
              {getValue("b%2"), getValue("x")}, "getConfigValue", R"("1%1\"\n2")"),
        shows("--config-var=my.PassWord1", "my.PassWord1: *****\n", {getValue("my.PassWord1")},
              "getConfigValue", R"("aü😀5")"),
        ok("show-settings --config-var=none", "none: \n", {getValue("none")}, {refuses("getConfigValue")}),
    });
}

TEST(ShowSettingsTest, ShowsAddressesAndProxiesAsTheyAre)
{
    const auto tProxy = [](const QByteArray& pMode, const QByteArray& pFlags, const QByteArray& pShown) {
        return shows(
            "-P", "Proxy: " + pShown + '\n', {sGetProxy}, "getNetProxySettings",
            R"({"mode": )" + pMode + R"(, "proxy": {)" + pFlags +
                R"(, "host": "h%2", "port": 1, "user": "%1", "password": null, "passwordChanged": false}})");
    };
    check({
        shows("-s", "Default server: /srv/up dates (username=)\n", {sGetServer}, "getDefaultServer",
              R"({"uri": "file:///srv/up%20dates", "user": "", "password": null})"),
        shows("-s", "Default server: https://h/%41%2?q=%1 x (username=%1 u)\n", {sGetServer},
              "getDefaultServer", R"({"uri": "https://h/%41%2?q=%1 x", "user": "%1 u", "password": null})"),
        tProxy("0", R"("enabled": true, "configured": true)", "h1:1 (username=%1)"),
        tProxy("2", R"("enabled": true, "configured": false)", "disabled"),
        tProxy("0", R"("enabled": false, "configured": true)", "disabled"),
        tProxy("1", R"("enabled": true, "configured": true)", "Using operating system settings"),
        tProxy("3", R"("enabled": true, "configured": true)", ""),
    });
}

TEST(ShowSettingsTest, EndsAtAFailedQueryExceptThatOfTheLanguages)
{
    check({
        fails("show-settings", "Failed to query current server\n", {sGetServer},
              {refuses("getDefaultServer")}),
        {"show-settings",
         sServerLine,
         "Failed to query proxy settings\n",
         1,
         {sGetServer, sGetProxy},
         {refuses("getNetProxySettings")}},
        {"show-settings -d",
         "",
         "Failed to query the kdml data directory\n",
         1,
         {"getKdmlDataDirectory"},
         {answers("getKdmlDataDirectory", "null")}},
        {"show-settings -lL --config-var=a",
         "Application language:  ()\nData language:  ()\na: value\n",
         "Failed to query languages.\n",
         0,
         {"getLanguages", getValue("a")},
         {refuses("getLanguages")}},
    });
}

TEST(UpdateSettingsTest, ChangesNothingWhileOthersAreActive)
{
    const QByteArray tRefusal = "Cannot update settings while the ";
    check({
        fails("update-settings -dx", tRefusal + "service is active.\n", {"isServiceActive"},
              {answers("isServiceActive", "true"), answers("isVKClientActive", "true")}),
        fails("update-settings -dx", tRefusal + "wizard is active.\n", guarded({}),
              {answers("isVKClientActive", "true")}),
        ok("update-settings", ""),
        ok("update-schedule-settings", ""),
        ok("update-monitoring-settings", ""),
    });
}

// A common option counts as an option, however often it is given.
TEST_F(ClientTest, ASocketGivenTwiceCountsAsAnOption)
{
    const QByteArray tSocket = "--socket=" + mInstallation.socketPath().toUtf8();
    expectResult(mInstallation.run({"show-settings", tSocket, tSocket}), "", "", 0);
    expectResult(mInstallation.run({"update-settings", tSocket, tSocket}), sApplied, "", 0);
    EXPECT_EQ(text(mService.calls()), guarded({"reloadConfig"}).join('\n'));
    EXPECT_EQ(mInstallation.run({"show-settings", tSocket}).mOut.count('\n'), 5);
    EXPECT_EQ(mInstallation.run({"update-settings", tSocket}).mOut, "");
}

TEST(UpdateSettingsTest, SetsTheDefaultServer)
{
    const auto tSets = [](const Words& pOptions, const QByteArray& pUri, const QByteArray& pUser,
                          const QByteArray& pPassword, const QByteArray& pOut = {},
                          const QByteArray& pInput = {}) {
        return sets(pOptions, {sGetServerForChange, setServer(pUri, pUser, pPassword)}, pOut, pInput);
    };
    check({
        tSets({"--server=https://h.org/a b%20ä"}, "https://h.org/a%20b%20%C3%A4", "anna", "secret"),
        tSets("--server=HTTPS://H.org", "https://h.org", "anna", "secret"),
        tSets({"--server=/srv/x y"}, "file:///srv/x%20y", "anna", "secret"),
        tSets("--server=bad --server=file:///srv/x", "file:///srv/x", "anna", "secret"),
        tSets({"--user=q\"%1 я"}, sOldUri, R"(q\"%1 я)", "secret"),
        tSets("--user= --password=", sOldUri, "", ""),
        tSets({"--password=a b"}, sOldUri, "anna", "a b"),
        tSets("--password", sOldUri, "anna", "ty ped", "Server password: ", "ty ped\nmore\n"),
        tSets("-p", sOldUri, "anna", "", "Server password: "),
    });
}

TEST(UpdateSettingsTest, RefusesWhatIsNoServer)
{
    for (const char* tAddress : {"host", "http://h.org/%1", "", "https://h org", "https://h.org:99999"}) {
        check({stops({QByteArray("--server=") + tAddress, "--password"},
                     QByteArray("Invalid or unsupported URL: ") + tAddress, {sGetServerForChange})});
    }
    check({
        stops("-ux", "Failed to query current server", {sGetServerForChange}, {refuses("getDefaultServer")}),
        stops("-ux", "Failed to update default server",
              {sGetServerForChange, setServer(sOldUri, "x", "secret")}, {refuses("updateDefaultServer")}),
    });
}

TEST(UpdateSettingsTest, SetsTheProxy)
{
    const QByteArray tHost = R"("proxy.example.org")";
    const QByteArray tUser = R"("paul")";
    const auto tSets = [](const Words& pOptions, const QByteArray& pCall, const QByteArray& pOut = {},
                          const QByteArray& pInput = {}) {
        return sets(pOptions, {sGetProxy, pCall}, pOut, pInput);
    };
    check({
        tSets("--proxy-mode=os", setProxy("1", true, tHost, "3128", tUser)),
        tSets("--proxy=h:65535", setProxy("2", true, R"("h")", "65535", tUser)),
        tSets("--proxy=:1", setProxy("2", false, R"("")", "1", tUser)),
        tSets({"--proxy-user=x", "-P", ""}, setProxy("2", false, "null", "0", R"("x")")),
        tSets("--proxy-password", setProxy("2", true, tHost, "3128", tUser, R"("x")"),
              "Proxy password: ", "x\n"),
    });
}

TEST(UpdateSettingsTest, RefusesWhatIsNoProxy)
{
    for (const char* tProxy : {"h", "h:0", "h:65536", "h:1:2", "h:", "h: 1x"}) {
        check({stops({QByteArray("--proxy=") + tProxy}, QByteArray("Invalid proxy '") + tProxy + '\'',
                     {sGetProxy})});
    }
    check({
        stops("--proxy=x --proxy-mode=OS", "Invalid proxy mode OS", {sGetProxy}),
        stops("--proxy=h:1", "Failed to query proxy settings", {sGetProxy}, {refuses("getNetProxySettings")}),
        stops("--proxy=:1", "Failed to update proxy settings",
              {sGetProxy, setProxy("2", false, R"("")", "1", R"("paul")")}, {refuses("setNetProxySettings")}),
        // What an earlier group has sent stays changed.
        stops("--proxy=x --user=y", "Invalid proxy 'x'",
              {sGetServerForChange, setServer(sOldUri, "y", "secret"), sGetProxy}),
    });
}

TEST(UpdateSettingsTest, SetsOrListsTheLanguages)
{
    const QByteArray tAppList = "Available application languages:\n  da: dansk\n  de: Deutsch\n";
    const QByteArray tDataList = "Available data languages:\n  de: Deutsch\n  fr: français\n";
    const QByteArray tSetApp = R"(setLanguages {"app":"de","data":null})";
    const QByteArray tSetData = R"(setLanguages {"app":null,"data":"fr"})";
    check({
        sets("-Lfr -lde", {tSetApp, tSetData}),
        ok("update-settings --config-var=a:1 -Lfr -l", tAppList, guarded({})),
        ok("update-settings --data-dir=x -lde -L", tDataList, guarded({setDataDir("x"), tSetApp})),
        {"update-settings -Lfr --app-language=DE%1", tAppList, "Invalid application language 'DE%1'\n", 1,
         guarded({})},
        {"update-settings --data-language=", tDataList, "Invalid data language ''\n", 1, guarded({})},
        stops("-lde -Lfr", "Failed to set the application language", {tSetApp}, {refuses("setLanguages")}),
        stops("-Lfr", "Failed to set the data language", {tSetData}, {refuses("setLanguages")}),
    });
}

TEST(UpdateSettingsTest, SetsTheDataDirectoryAndVariables)
{
    check({
        sets("--data-dir=", {setDataDir("")}),
        // The next word is the value, whatever its form; the last one counts.
        sets("-dpath --data-d=a --data-dir --config-var=a:b", {setDataDir("--config-var=a:b")}),
        stops("--data-dir=x -lde", "Failed to set the kdml data directory", {setDataDir("x")},
              {refuses("setKdmlDataDirectory")}),
        sets("--config-var=a:b:c --config-var a: --config-var=:b",
             {setValue("a", "b:c"), setValue("a", ""), setValue("", "b")}),
        stops("--config-var=a:1 --config-var=%1 --config-var=c:2", "Invalid argument to --config-var: '%1'",
              {setValue("a", "1")}),
        stops("--config-var=%1:2", "Failed to set configuration variable '%1'", {setValue("%1", "2")},
              {refuses("setConfigValue")}),
        stops("--config-var=a:1", "Failed to reload the service configuration",
              {setValue("a", "1"), "reloadConfig"}, {refuses("reloadConfig")}),
    });
}

// One argument takes at most 128 KiB on Linux, and an answer up to 8 MiB.
TEST(SettingsTest, CarriesAnyValueUnharmed)
{
    const QByteArray tOdd = "line\nbreak \"quoted\" 'x' \\ %1 %n 100% \t日本語 😀";
    const QByteArray tOddJson = R"(line\nbreak \"quoted\" 'x' \\ %1 %n 100% \t日本語 😀)";
    const QByteArray tLong(120 * 1024, 'x');
    const QByteArray tMegabyte(1024 * 1024, 'y');
    check({
        sets({"--config-var=a:" + tOdd}, {setValue("a", tOddJson)}),
        shows("--config-var=a", "a: " + tOdd + '\n', {getValue("a")}, "getConfigValue", '"' + tOddJson + '"'),
        // Bytes that are not UTF-8 become the replacement character.
        sets({"--config-var=a:x\xff\xfey"}, {setValue("a", "x\xef\xbf\xbd\xef\xbf\xbdy")}),
        sets({"--config-var=a:" + tLong}, {setValue("a", tLong)}),
        shows("--config-var=a", "a: " + tMegabyte + '\n', {getValue("a")}, "getConfigValue",
              '"' + tMegabyte + '"'),
        sets("--password", {sGetServerForChange, setServer(sOldUri, "anna", tLong)},
             "Server password: ", tLong + '\n'),
    });
}
