#include "ServiceRig.h"

namespace {

constexpr int sInvalidParams = -32602;
constexpr int sMethodNotFound = -32601;
constexpr int sRefused = 1;

const char* const sMonitoring = R"({"settings": {"eventMailsEnabled": true, "eventMailOnUpdate": true,
    "eventMailOnOverdue": false, "eventMailOnManualIntervention": true, "summarizedMailsEnabled": false,
    "summarizedMailsOnChangeOnly": true, "summarizedMailPeriod": 3, "updateOverduePeriod": 9, "clientName": "box",
    "notificationEmailAddresses": [{"address": "a@example.com", "verified": true}], "lastSummary": null,
    "clientSettings": {"text1": "one", "text2": null, "text3": "", "text4": "four", "date1": "2026-01-02T03:04:05",
    "date2": null}}})";
const char* const sServer = R"({"name": "n", "uri": "https://example.com/", "userName": "u", "enabled": true,
    "default": false, "savePassword": true, "password": "p"})";

QByteArray proxy(const QByteArray& pMode, const QByteArray& pPort)
{
    return R"({"mode": )" + pMode +
           R"(, "proxy": {"enabled": true, "configured": false, "host": "h", "port": )" + pPort +
           R"(, "user": "pu", "password": "hidden", "passwordChanged": true}})";
}

QByteArray serverParams(const char* pRest)
{
    return QByteArray(R"({"server": )") + sServer + pRest + "}";
}

std::string compact(const QJsonValue& pValue)
{
    return QJsonDocument(QJsonArray{pValue}).toJson(QJsonDocument::Compact).mid(1).chopped(1).toStdString();
}

// pMembers, of several levels, with one value exchanged.
QJsonObject with(QJsonObject pObject, const QString& pName, const QJsonValue& pValue)
{
    if (pValue.isUndefined()) {
        pObject.remove(pName);
    } else {
        pObject.insert(pName, pValue);
    }
    return pObject;
}

} // namespace

// In this order, on one connection: later rows rely on what earlier ones have set.
TEST_F(ServiceTest, EveryMethodAnswersAsTheProtocolSays)
{
    RawPeer tPeer = mRig.startAndConnect();
    const struct
    {
        const char* mMethod;
        QByteArray mParams;
        const char* mResult;
    } tCases[] = {
        {"ping", "{}", "true"},
        {"ping", R"({"more": [1, 2]})", "true"},
        {"isServiceActive", "{}", "false"},
        {"isVKClientActive", "{}", "false"},
        {"getServiceStatus", "{}", "0"},
        {"getServiceProgress", "{}",
         R"({"activity":0,"bytesDone":0,"bytesTotal":0,"cancelable":false,"done":0,"failedCount":0,"package":0,"packageCount":0,"text":"","total":0})"},
        {"getLastServiceResult", R"({"thisSession": true})", "0"},
        {"getLastServiceResult", R"({"thisSession": false})", "0"},
        {"getDefaultServer", R"({"withPassword": true})", R"({"password":null,"uri":"","user":""})"},
        {"updateDefaultServer", R"({"uri": "file:///srv/u", "user": "me", "password": "secret"})", "true"},
        {"getDefaultServer", R"({"withPassword": true})",
         R"({"password":"secret","uri":"file:///srv/u","user":"me"})"},
        {"getDefaultServer", R"({"withPassword": false})",
         R"({"password":null,"uri":"file:///srv/u","user":"me"})"},
        {"setNetProxySettings", proxy("2", "3128"), "true"},
        {"getNetProxySettings", "{}",
         R"({"mode":2,"proxy":{"configured":false,"enabled":true,"host":"h","password":null,"passwordChanged":false,"port":3128,"user":"pu"}})"},
        {"getKdmlDataDirectory", "{}", "INSTALLED"},
        {"setKdmlDataDirectory", R"({"path": "/no/such/place"})", "true"},
        {"getKdmlDataDirectory", "{}", R"("/no/such/place")"},
        {"setKdmlDataDirectory", R"({"path": ""})", "true"},
        {"getKdmlDataDirectory", "{}", "INSTALLED"},
        {"getLanguages", "{}", R"({"app":"en","data":"en"})"},
        {"setLanguages", R"({"app": "de", "data": null})", "true"},
        {"setLanguages", R"({"app": null, "data": "pt_BR"})", "true"},
        {"getLanguages", "{}", R"({"app":"de","data":"pt_BR"})"},
        {"getConfigValue", R"({"name": "x", "default": "d"})", R"("d")"},
        {"getConfigValue", R"({"name": "x", "default": null})", "null"},
        {"setConfigValue", R"({"name": "x", "value": "a:b\n\"%1\""})", "true"},
        {"getConfigValue", R"({"name": "x", "default": ""})", R"("a:b\n\"%1\"")"},
        {"setConfigValue", R"({"name": "mail.password", "value": "secret"})", "true"},
        {"getConfigValue", R"({"name": "mail.password", "default": ""})", R"("******")"},
        {"setConfigValue", R"({"name": "my.PassWord1", "value": "secret 😀"})", "true"},
        {"getConfigValue", R"({"name": "my.PassWord1", "default": ""})", R"("*********")"},
        {"getConfigValue", R"({"name": "other.password", "default": "d"})", R"("d")"},
        {"getConfigValue", R"({"name": "service.lastRun", "default": ""})", R"("")"},
        {"setScheduleParameters",
         R"({"mode": 2, "flags": 2, "nextCheck": "2199-01-02T03:04:05", "periodCount": 3,
            "unit": 3, "extra": "more", "save": true})",
         "true"},
        {"getScheduleParameters", "{}",
         R"({"extra":"more","flags":2,"mode":2,"nextCheck":"2199-01-02T03:04:05","periodCount":3,"unit":3})"},
        {"setMonitoringSettings", sMonitoring, "true"},
        {"getMonitoringSettings", "{}",
         R"({"clientName":"box","clientSettings":{"date1":"2026-01-02T03:04:05","date2":null,"text1":"one","text2":null,"text3":"","text4":"four"},"eventMailOnManualIntervention":true,"eventMailOnOverdue":false,"eventMailOnUpdate":true,"eventMailsEnabled":true,"lastSummary":null,"notificationEmailAddresses":[{"address":"a@example.com","verified":false}],"summarizedMailPeriod":3,"summarizedMailsEnabled":false,"summarizedMailsOnChangeOnly":true,"updateOverduePeriod":9})"},
        {"getConfigValue", R"({"name": "mail.verify.a@example.com", "default": ""})", R"("not verified")"},
        {"addServer", serverParams(""), "true"},
        {"changeServer", serverParams(R"(, "index": 1)"), "true"},
        {"changeServer", serverParams(R"(, "index": 1, "revision": 1)"), "false"},
        {"removeServer", R"({"index": 0, "revision": 1})", "false"},
        {"removeServer", R"({"index": 0})", "true"},
        {"reloadConfig", "{}", "true"},
        {"enterMonitorMode", "{}", "true"},
        {"quitService", "{}", "true"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(std::string(tCase.mMethod) + " " + tCase.mParams.toStdString());
        QByteArray tExpected = tCase.mResult;
        tExpected.replace("INSTALLED", '"' + mRig.installation().path("installed").toUtf8() + '"');
        EXPECT_EQ(compact(tPeer.call(tCase.mMethod, tCase.mParams)), tExpected.toStdString());
    }
    EXPECT_TRUE(tPeer.waitForEvent("quitRequestReceived"));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_FALSE(mRig.log().contains("secret") || mRig.log().contains("hidden"));
}

TEST_F(ServiceTest, ServerListHoldsNoPasswords)
{
    RawPeer tPeer = mRig.startAndConnect();
    ASSERT_EQ(tPeer.errorOf("addServer", serverParams("")), 0);
    const QJsonObject tList = tPeer.call("getServerList").toObject();
    EXPECT_GT(tList.value(q("revision")).toInteger(), 0);
    EXPECT_EQ(
        compact(tList.value(q("servers"))),
        R"([{"default":false,"enabled":true,"name":"n","savePassword":true,"uri":"https://example.com/","userName":"u"}])");
}

TEST_F(ServiceTest, HelloSaysWhoAnswers)
{
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tHello =
        tPeer.call("hello", R"({"protocol": 1, "client": "test", "version": "1"})").toObject();
    EXPECT_EQ(tHello.value(q("protocol")).toInt(), 1);
    EXPECT_EQ(tHello.value(q("service")).toString(), q("vkservice"));
    EXPECT_EQ(tHello.value(q("pid")).toInt(), mRig.program().pid());
    EXPECT_TRUE(tHello.value(q("worker")).toBool());
    EXPECT_EQ(tPeer.errorOf("hello", R"({"protocol": 2, "client": "t", "version": ""})"), sRefused);
}

// Each parameter of each method: missing, and of every other type.
TEST_F(ServiceTest, WrongParametersAreTold)
{
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tMonitoring = Json(sMonitoring).value(q("settings")).toObject();
    const struct
    {
        const char* mMethod;
        QJsonObject mParams;
    } tMethods[] = {
        {"hello", Json(R"({"protocol": 1, "client": "c", "version": "v"})")},
        {"getLastServiceResult", Json(R"({"thisSession": true})")},
        {"getLastServiceResultStr", Json(R"({"thisSession": true})")},
        {"triggerUpdate", Json(R"({"manual": true})")},
        {"getDefaultServer", Json(R"({"withPassword": true})")},
        {"updateDefaultServer", Json(R"({"uri": "file:///u", "user": "u", "password": "p"})")},
        {"setNetProxySettings", Json(proxy("1", "1"))},
        {"setKdmlDataDirectory", Json(R"({"path": "/p"})")},
        {"setLanguages", Json(R"({"app": "de", "data": "de"})")},
        {"getConfigValue", Json(R"({"name": "n", "default": "d"})")},
        {"setConfigValue", Json(R"({"name": "n", "value": "v"})")},
        {"setScheduleParameters",
         Json(R"({"mode": 0, "flags": 0, "nextCheck": "2199-01-02T03:04:05", "periodCount": 1,
            "unit": 1, "extra": "", "save": true})")},
        {"setMonitoringSettings", {{q("settings"), tMonitoring}}},
        {"addServer", {{q("server"), Json(sServer)}}},
        {"changeServer", {{q("server"), Json(sServer)}, {q("index"), 0}}},
        {"removeServer", Json(R"({"index": 0})")},
    };
    const QJsonValue tOthers[] = {
        QJsonValue(QJsonValue::Undefined), QJsonArray{1}, QJsonObject{}, 1.5, 1e300, true, q("text")};
    int tAsked = 0;
    const auto tExpectRefused = [&](const char* pMethod, const QJsonObject& pParams, const QString& pName) {
        SCOPED_TRACE(std::string(pMethod) + " " +
                     QJsonDocument(pParams).toJson(QJsonDocument::Compact).toStdString());
        QJsonObject tError;
        tPeer.call(pMethod, pParams, &tError);
        EXPECT_EQ(tError.value(q("code")).toInt(), sInvalidParams);
        EXPECT_TRUE(tError.value(q("message")).toString().contains(pName));
        ++tAsked;
    };
    for (const auto& tMethod : tMethods) {
        for (const QString& tName : tMethod.mParams.keys()) {
            const QJsonValue tRight = tMethod.mParams.value(tName);
            for (const QJsonValue& tOther : tOthers) {
                const bool tAlsoRight = tOther.type() == tRight.type() && !tOther.isDouble() &&
                                        !tOther.isObject() && tName != q("nextCheck");
                if (!tAlsoRight) {
                    tExpectRefused(tMethod.mMethod, with(tMethod.mParams, tName, tOther), tName);
                }
            }
            const QJsonObject tInner = tRight.toObject();
            for (const QString& tMember : tInner.keys()) {
                if (tMember != q("password") || tMethod.mMethod == QByteArray("setNetProxySettings")) {
                    tExpectRefused(tMethod.mMethod,
                                   with(tMethod.mParams, tName, with(tInner, tMember, QJsonValue::Undefined)),
                                   tName);
                }
                tExpectRefused(tMethod.mMethod,
                               with(tMethod.mParams, tName, with(tInner, tMember, QJsonArray{QJsonObject{}})),
                               tName);
            }
        }
    }
    EXPECT_GT(tAsked, 200);
    EXPECT_EQ(tPeer.call("getServerList")[q("servers")], QJsonArray()) << "none of them has done anything";
}

TEST_F(ServiceTest, ValuesWithoutMeaningAreRefused)
{
    RawPeer tPeer = mRig.startAndConnect();
    const struct
    {
        const char* mMethod;
        QByteArray mParams;
        int mError;
    } tCases[] = {
        {"noSuchMethod", "{}", sMethodNotFound},
        {"", "{}", sMethodNotFound},
        {"setNetProxySettings", proxy("3", "1"), sInvalidParams},
        {"setNetProxySettings", proxy("2", "-1"), sInvalidParams},
        {"setNetProxySettings", proxy("2", "65536"), sInvalidParams},
        {"setKdmlDataDirectory", R"({"path": "relative/path"})", sRefused},
        {"setLanguages", R"({"app": "not a language", "data": null})", sRefused},
        {"setLanguages", R"({"app": "de\n", "data": null})", sRefused},
        {"setConfigValue", R"({"name": "", "value": "v"})", sRefused},
        {"setConfigValue", R"({"name": "service.lastRun", "value": "20260101000000"})", sRefused},
        {"setConfigValue", R"({"name": "update.parallelDownloads", "value": "many"})", sRefused},
        {"setConfigValue", R"({"name": "mail.verify.nobody@example.com", "value": "123456"})", sRefused},
        {"setScheduleParameters", R"({"mode": 3, "flags": 0, "nextCheck": null, "periodCount": 1, "unit": 1,
            "extra": null, "save": true})",
         sInvalidParams},
        {"setScheduleParameters", R"({"mode": 2, "flags": 0, "nextCheck": null, "periodCount": -1, "unit": 1,
            "extra": null, "save": true})",
         sRefused},
        {"setMonitoringSettings",
         QByteArray(sMonitoring).replace(R"("summarizedMailPeriod": 3)", R"("summarizedMailPeriod": 0)"),
         sRefused},
        {"setMonitoringSettings",
         QByteArray(sMonitoring).replace("a@example.com", "a@example.com\\r\\nBcc: b@example.com"), sRefused},
        {"updateDefaultServer", R"({"uri": "http://example.com/", "user": "", "password": ""})", sRefused},
        {"removeServer", R"({"index": 0})", sRefused},
        {"changeServer", serverParams(R"(, "index": -1)"), sRefused},
        {"abortUpdate", "{}", sRefused},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(std::string(tCase.mMethod) + " " + tCase.mParams.toStdString());
        EXPECT_EQ(tPeer.errorOf(tCase.mMethod, tCase.mParams), tCase.mError);
    }
}

TEST_F(ServiceTest, ReloadTakesUpTheConfigurationOrSaysWhyNot)
{
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tName = Json(R"({"name": "update.waitForApps", "default": ""})");
    EXPECT_EQ(tPeer.call("getConfigValue", tName), q("600"));
    mRig.configure("update.waitForApps = 30\n");
    EXPECT_EQ(tPeer.call("getConfigValue", tName), q("600"));
    EXPECT_EQ(tPeer.call("reloadConfig"), true);
    EXPECT_EQ(tPeer.call("getConfigValue", tName), q("30"));
    mRig.configure("this is no TOML\n");
    EXPECT_EQ(tPeer.errorOf("reloadConfig"), sRefused);
    EXPECT_EQ(tPeer.call("getConfigValue", tName), q("30"));
}
