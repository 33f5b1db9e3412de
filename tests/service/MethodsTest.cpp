#include "ServiceRig.h"

#include <csignal>
#include <span>

namespace {

constexpr int sInvalidParams = -32602;
constexpr int sMethodNotFound = -32601;
constexpr int sRefused = 1;

const QByteArray sMonitoring =
    R"({"clientName":"\u6a5f %1\n","clientSettings":{"date1":"2026-01-02T03:04:05",)"
    R"("date2":null,"text1":"one","text2":null,"text3":"","text4":"four"},)"
    R"("eventMailOnManualIntervention":true,"eventMailOnOverdue":false,)"
    R"("eventMailOnUpdate":true,"eventMailsEnabled":true,"lastSummary":null,)"
    R"("notificationEmailAddresses":[{"address":"a@example.com","verified":VERIFIED}],)"
    R"("summarizedMailPeriod":2147483647,"summarizedMailsEnabled":false,)"
    R"("summarizedMailsOnChangeOnly":true,"updateOverduePeriod":9})";
const QByteArray sSchedule = R"({"extra":"more","flags":2,"mode":2,"nextCheck":"2199-01-02T03:04:05",)"
                             R"("periodCount":3,"unit":3})";
const QByteArray sServer = R"("default":false,"enabled":true,"name":"n","savePassword":true,)"
                           R"("uri":"https://example.com/","userName":"u"})";

QByteArray monitoring(const QByteArray& pVerified)
{
    return QByteArray(sMonitoring).replace("VERIFIED", pVerified);
}

QByteArray schedule(const QByteArray& pMode, const QByteArray& pSave)
{
    return QByteArray(sSchedule).replace(R"("mode":2)", R"("mode":)" + pMode).chopped(1) + R"(,"save":)" +
           pSave + '}';
}

QByteArray proxy(const QByteArray& pMode, const QByteArray& pPort)
{
    return R"({"mode": )" + pMode +
           R"(, "proxy": {"enabled": true, "configured": false, "host": "h", "port": )" + pPort +
           R"(, "user": "pu", "password": "hidden", "passwordChanged": true}})";
}

QByteArray serverParams(const char* pRest)
{
    return R"({"server": {"password": "p", )" + sServer + pRest + "}";
}

struct Row
{
    const char* mMethod;
    QByteArray mParams;
    QByteArray mResult;
};

// In this order: later rows depend on earlier ones.
const Row sFirst[] = {
    {"ping", R"({"more": [1, 2]})", "true"},
    {"isServiceActive", "{}", "false"},
    {"isVKClientActive", "{}", "false"},
    {"getServiceStatus", "{}", "0"},
    {"getServiceProgress", "{}",
     R"({"activity":0,"bytesDone":0,"bytesTotal":0,"cancelable":false,"done":0,"failedCount":0,"package":0,)"
     R"("packageCount":0,"text":"","total":0})"},
    {"getLastServiceResult", R"({"thisSession": true})", "0"},
    {"getLastServiceResult", R"({"thisSession": false})", "0"},
    {"getDefaultServer", R"({"withPassword": true})", R"({"password":null,"uri":"","user":""})"},
    {"updateDefaultServer", R"({"uri": "file:///srv/u", "user": "me", "password": "secret"})", "true"},
    {"setNetProxySettings", proxy("2", "3128"), "true"},
    {"getKdmlDataDirectory", "{}", "INSTALLED"},
    {"setKdmlDataDirectory", R"({"path": "/no/such/place"})", "true"},
    {"getLanguages", "{}", R"({"app":"en","data":"en"})"},
    {"setLanguages", R"({"app": "de", "data": null})", "true"},
    {"setLanguages", R"({"app": null, "data": "pt_BR"})", "true"},
    {"getConfigValue", R"({"name": "x", "default": "d"})", R"("d")"},
    {"getConfigValue", R"({"name": "x", "default": null})", "null"},
    {"setConfigValue", R"({"name": "x", "value": "a:b\n\"%1\""})", "true"},
    {"setConfigValue", R"({"name": "mail.password", "value": "secret"})", "true"},
    {"setConfigValue", R"({"name": "my.PassWord1", "value": "secret 😀"})", "true"},
    {"setScheduleParameters", schedule("2", "true"), "true"},
    {"setMonitoringSettings", R"({"settings": )" + monitoring("true") + '}', "true"},
    {"setHold", R"({"name": "viewer", "versions": "1.2", "until": null})", "true"},
    {"setHold", R"({"name": "app", "versions": null, "until": "2199-01-02T03:04:05"})", "true"},
    {"setHold", R"({"name": "gone", "versions": null, "until": null})", "true"},
    {"removeHold", R"({"name": "gone"})", "true"},
    {"removeHold", R"({"name": "gone"})", "false"},
    {"getChannel", "{}", R"("stable")"},
    {"setChannel", R"({"channel": "beta"})", "true"},
    {"getLeftOut", "{}", R"({"packages":[]})"},
    {"addServer", serverParams(""), "true"},
    {"changeServer", serverParams(R"(, "index": 1)"), "true"},
    {"changeServer", serverParams(R"(, "index": 1, "revision": 1)"), "false"},
    {"removeServer", R"({"index": 0, "revision": 1})", "false"},
};

// Asked before and after a kill.
const Row sShown[] = {
    {"getDefaultServer", R"({"withPassword": true})",
     R"({"password":"secret","uri":"file:///srv/u","user":"me"})"},
    {"getDefaultServer", R"({"withPassword": false})",
     R"({"password":null,"uri":"file:///srv/u","user":"me"})"},
    {"getNetProxySettings", "{}",
     R"({"mode":2,"proxy":{"configured":false,"enabled":true,"host":"h","password":null,"passwordChanged":false,)"
     R"("port":3128,"user":"pu"}})"},
    {"getHolds", "{}",
     R"({"holds":[{"name":"app","until":"2199-01-02T03:04:05","versions":null},)"
     R"({"name":"viewer","until":null,"versions":"1.2"}]})"},
    {"getChannel", "{}", R"("beta")"},
    {"getKdmlDataDirectory", "{}", R"("/no/such/place")"},
    {"getLanguages", "{}", R"({"app":"de","data":"pt_BR"})"},
    {"getConfigValue", R"({"name": "x", "default": ""})", R"("a:b\n\"%1\"")"},
    {"getConfigValue", R"({"name": "mail.password", "default": ""})", R"("******")"},
    {"getConfigValue", R"({"name": "my.PassWord1", "default": ""})", R"("*********")"},
    {"getConfigValue", R"({"name": "other.password", "default": "d"})", R"("d")"},
    {"getConfigValue", R"({"name": "service.lastRun", "default": ""})", R"("")"},
    {"getConfigValue", R"({"name": "mail.verify.a@example.com", "default": ""})", R"("not verified")"},
    {"getScheduleParameters", "{}", sSchedule},
    {"getMonitoringSettings", "{}", monitoring("false").replace("\\u6a5f", "機")},
    // A value that is not saved lasts until the service ends.
    {"setScheduleParameters", schedule("0", "false"), "true"},
    {"getScheduleParameters", "{}", QByteArray(sSchedule).replace(R"("mode":2)", R"("mode":0)")},
};

const Row sLast[] = {
    {"removeServer", R"({"index": 0})", "true"},
    {"getDefaultServer", R"({"withPassword": true})", R"({"password":null,"uri":"","user":""})"},
    {"getServerList", "{}", R"({"revision":0,"servers":[{)" + sServer + "]}"},
    {"setKdmlDataDirectory", R"({"path": ""})", "true"},
    {"getKdmlDataDirectory", "{}", "INSTALLED"},
    {"reloadConfig", "{}", "true"},
    {"enterMonitorMode", "{}", "true"},
    {"quitService", "{}", "true"},
};

class MethodsTest : public ServiceTest
{
protected:
    void expectRows(RawPeer& pPeer, std::span<const Row> pRows)
    {
        for (const Row& tRow : pRows) {
            QByteArray tExpected = tRow.mResult;
            tExpected.replace("INSTALLED", '"' + mRig.installation().path("installed").toUtf8() + '"');
            QJsonValue tResult = pPeer.call(tRow.mMethod, tRow.mParams);
            if (tRow.mMethod == QByteArray("getServerList")) {
                EXPECT_GT(tResult[q("revision")].toInteger(), 0);
                tResult = with(tResult.toObject(), q("revision"), 0);
            }
            EXPECT_EQ(QJsonDocument(QJsonArray{tResult}).toJson(QJsonDocument::Compact),
                      '[' + tExpected + ']')
                << tRow.mMethod << tRow.mParams;
        }
    }
    static QJsonObject with(QJsonObject pObject, const QString& pName, const QJsonValue& pValue)
    {
        pObject.insert(pName, pValue); // removes it if the value is undefined
        return pObject;
    }
};

} // namespace

TEST_F(MethodsTest, AnswerAsTheProtocolSays)
{
    RawPeer tPeer = mRig.startAndConnect();
    const QJsonObject tHello =
        tPeer.call("hello", R"({"protocol": 1, "client": "c", "version": "1"})").toObject();
    EXPECT_EQ(tHello, Json({{q("protocol"), 1},
                            {q("service"), q("vkservice")},
                            {q("version"), tHello[q("version")]},
                            {q("pid"), mRig.program().pid()},
                            {q("worker"), true}}));
    expectRows(tPeer, sFirst);
    expectRows(tPeer, sShown);
    ASSERT_NO_FATAL_FAILURE(mRig.killAndRestart());
    RawPeer tAgain = mRig.connect();
    expectRows(tAgain, sShown);
    expectRows(tAgain, sLast);
    EXPECT_TRUE(tAgain.waitForEvent("quitRequestReceived"));
    EXPECT_EQ(mRig.program().wait().mStatus, 0);
    EXPECT_FALSE(mRig.log().contains("secret") || mRig.log().contains("hidden"));
}

// Each parameter of each method: missing, and of every other type.
TEST_F(MethodsTest, WrongParametersAreTold)
{
    RawPeer tPeer = mRig.startAndConnect();
    int tAsked = 0;
    const auto tExpectRefused = [&](const char* pMethod, const QJsonObject& pParams, const QString& pName) {
        QJsonObject tError;
        tPeer.call(pMethod, pParams, &tError);
        EXPECT_EQ(tError.value(q("code")).toInt(), sInvalidParams)
            << pMethod << QJsonDocument(pParams).toJson();
        EXPECT_TRUE(tError.value(q("message")).toString().contains(pName));
        ++tAsked;
    };
    const QJsonValue tOthers[] = {
        QJsonValue(QJsonValue::Undefined), QJsonArray{1}, QJsonObject{}, 1.5, 1e300, true, q("text")};
    QList<Row> tRows(std::begin(sFirst), std::end(sFirst));
    tRows += {{"hello", R"({"protocol": 1, "client": "c", "version": "v"})", {}},
              {"triggerUpdate", R"({"manual": true})", {}},
              {"getLastServiceResultStr", R"({"thisSession": true})", {}}};
    for (const Row& tRow : std::as_const(tRows)) {
        const Json tParams(tRow.mParams);
        for (const QString& tName : tParams.keys()) {
            const QJsonValue tRight = tParams.value(tName);
            for (const QJsonValue& tOther : tOthers) {
                const bool tAlsoRight = (tOther.type() == tRight.type() && !tOther.isDouble() &&
                                         !tOther.isObject() && tName != q("nextCheck")) ||
                                        (tRight.isNull() && tOther.isString()) || tName == q("more") ||
                                        tName == q("revision");
                if (!tAlsoRight) {
                    tExpectRefused(tRow.mMethod, with(tParams, tName, tOther), tName);
                }
            }
            const QJsonObject tInner = tRight.toObject();
            for (const QString& tMember : tInner.keys()) {
                if (tMember != q("password") || tName == q("proxy")) {
                    tExpectRefused(tRow.mMethod, with(tParams, tName, with(tInner, tMember, tOthers[0])),
                                   tName);
                }
                const QJsonArray tWrong{QJsonObject{}};
                tExpectRefused(tRow.mMethod, with(tParams, tName, with(tInner, tMember, tWrong)), tName);
            }
        }
    }
    EXPECT_GT(tAsked, 200);
    EXPECT_EQ(tPeer.call("getServerList")[q("servers")], QJsonArray()) << "none of them has done anything";
}

TEST_F(MethodsTest, ValuesWithoutMeaningAreRefused)
{
    RawPeer tPeer = mRig.startAndConnect();
    const struct
    {
        const char* mMethod;
        QByteArray mParams;
        int mError;
    } tCases[] = {
        {"noSuchMethod", "{}", sMethodNotFound},
        {"hello", R"({"protocol": 2, "client": "t", "version": ""})", sRefused},
        {"setNetProxySettings", proxy("3", "1"), sInvalidParams},
        {"setNetProxySettings", proxy("2", "-1"), sInvalidParams},
        {"setNetProxySettings", proxy("2", "65536"), sInvalidParams},
        {"setKdmlDataDirectory", R"({"path": "relative/path"})", sRefused},
        {"setLanguages", R"({"app": "de\n", "data": null})", sRefused},
        {"setHold", R"({"name": "../x", "versions": null, "until": null})", sRefused},
        {"setHold", R"({"name": "x", "versions": "1.x", "until": null})", sRefused},
        {"setHold", R"({"name": "x", "versions": "1", "until": "2001-01-02T03:04:05"})", sRefused},
        {"removeHold", R"({"name": "X"})", sRefused},
        {"setChannel", R"({"channel": "a b"})", sRefused},
        {"setConfigValue", R"({"name": "", "value": "v"})", sRefused},
        {"setConfigValue", R"({"name": "service.lastRun", "value": "20260101000000"})", sRefused},
        {"setConfigValue", R"({"name": "update.parallelDownloads", "value": "many"})", sRefused},
        {"setConfigValue", R"({"name": "mail.verify.nobody@example.com", "value": "123456"})", sRefused},
        {"setScheduleParameters", schedule("3", "true"), sInvalidParams},
        {"setScheduleParameters", schedule("2", "true").replace("Count\":3", "Count\":-1"), sRefused},
        {"setMonitoringSettings", R"({"settings": )" + monitoring("true").replace("2147483647", "0") + '}',
         sRefused},
        {"setMonitoringSettings",
         R"({"settings": )" +
             monitoring("true").replace("example.com", "example.com\\r\\nBcc: b@example.com") + '}',
         sRefused},
        {"updateDefaultServer", R"({"uri": "http://example.com/", "user": "", "password": ""})", sRefused},
        {"removeServer", R"({"index": 0})", sRefused},
        {"changeServer", serverParams(R"(, "index": -1)"), sRefused},
        {"abortUpdate", "{}", sRefused},
    };
    for (const auto& tCase : tCases) {
        EXPECT_EQ(tPeer.errorOf(tCase.mMethod, tCase.mParams), tCase.mError)
            << tCase.mMethod << tCase.mParams;
    }
}

TEST_F(MethodsTest, ReloadTakesUpTheConfigurationOrSaysWhyNot)
{
    RawPeer tPeer = mRig.startAndConnect();
    const auto tValue = [&tPeer] {
        return tPeer.call("getConfigValue", R"({"name": "update.waitForApps", "default": ""})").toString();
    };
    EXPECT_EQ(tValue(), q("600"));
    mRig.configure("update.waitForApps = 30\n");
    EXPECT_EQ(tValue(), q("600"));
    EXPECT_EQ(tPeer.call("reloadConfig"), true);
    EXPECT_EQ(tValue(), q("30"));
    mRig.configure("this is no TOML\n");
    EXPECT_EQ(tPeer.errorOf("reloadConfig"), sRefused);
    EXPECT_EQ(tValue(), q("30"));
    mRig.configure("update.waitForApps = 31\n");
    mRig.program().signal(SIGHUP);
    for (int i = 0; i < 1000 && tValue() != q("31"); ++i) {
    }
    EXPECT_EQ(tValue(), q("31"));
}
