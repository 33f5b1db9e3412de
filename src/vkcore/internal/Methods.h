#pragma once

#include <QtCore/QLatin1StringView>

// The names of the socket's methods and events, for both ends.
namespace tarn::vkcore::protocol::method {

inline constexpr QLatin1StringView sHello("hello");
inline constexpr QLatin1StringView sPing("ping");
inline constexpr QLatin1StringView sIsVKClientActive("isVKClientActive");
inline constexpr QLatin1StringView sEnterMonitorMode("enterMonitorMode");
inline constexpr QLatin1StringView sQuitService("quitService");
inline constexpr QLatin1StringView sReloadConfig("reloadConfig");

inline constexpr QLatin1StringView sIsServiceActive("isServiceActive");
inline constexpr QLatin1StringView sGetServiceStatus("getServiceStatus");
inline constexpr QLatin1StringView sGetServiceProgress("getServiceProgress");
inline constexpr QLatin1StringView sGetLastServiceResult("getLastServiceResult");
inline constexpr QLatin1StringView sGetLastServiceResultStr("getLastServiceResultStr");
inline constexpr QLatin1StringView sTriggerUpdate("triggerUpdate");
inline constexpr QLatin1StringView sAbortUpdate("abortUpdate");

inline constexpr QLatin1StringView sGetOverview("getOverview");
inline constexpr QLatin1StringView sGetHistory("getHistory");

inline constexpr QLatin1StringView sGetPackages("getPackages");
inline constexpr QLatin1StringView sGetVerification("getVerification");
inline constexpr QLatin1StringView sStartVerification("startVerification");
inline constexpr QLatin1StringView sStopVerification("stopVerification");

inline constexpr QLatin1StringView sGetHolds("getHolds");
inline constexpr QLatin1StringView sSetHold("setHold");
inline constexpr QLatin1StringView sRemoveHold("removeHold");
inline constexpr QLatin1StringView sGetChannel("getChannel");
inline constexpr QLatin1StringView sSetChannel("setChannel");
inline constexpr QLatin1StringView sGetLeftOut("getLeftOut");

inline constexpr QLatin1StringView sGetGenerations("getGenerations");
inline constexpr QLatin1StringView sRollBack("rollBack");
inline constexpr QLatin1StringView sGetRefusals("getRefusals");
inline constexpr QLatin1StringView sAcceptPackage("acceptPackage");

inline constexpr QLatin1StringView sGetDefaultServer("getDefaultServer");
inline constexpr QLatin1StringView sUpdateDefaultServer("updateDefaultServer");
inline constexpr QLatin1StringView sGetServerList("getServerList");
inline constexpr QLatin1StringView sAddServer("addServer");
inline constexpr QLatin1StringView sChangeServer("changeServer");
inline constexpr QLatin1StringView sRemoveServer("removeServer");

inline constexpr QLatin1StringView sGetNetProxySettings("getNetProxySettings");
inline constexpr QLatin1StringView sSetNetProxySettings("setNetProxySettings");
inline constexpr QLatin1StringView sGetKdmlDataDirectory("getKdmlDataDirectory");
inline constexpr QLatin1StringView sSetKdmlDataDirectory("setKdmlDataDirectory");
inline constexpr QLatin1StringView sGetLanguages("getLanguages");
inline constexpr QLatin1StringView sSetLanguages("setLanguages");
inline constexpr QLatin1StringView sGetConfigValue("getConfigValue");
inline constexpr QLatin1StringView sSetConfigValue("setConfigValue");

inline constexpr QLatin1StringView sGetScheduleParameters("getScheduleParameters");
inline constexpr QLatin1StringView sSetScheduleParameters("setScheduleParameters");

inline constexpr QLatin1StringView sGetMonitoringSettings("getMonitoringSettings");
inline constexpr QLatin1StringView sSetMonitoringSettings("setMonitoringSettings");

// Events: messages of the service that answer no request.
inline constexpr QLatin1StringView sServiceStatusChanged("serviceStatusChanged");
inline constexpr QLatin1StringView sServiceActivityChanged("serviceActivityChanged");
inline constexpr QLatin1StringView sServiceErrorReceived("serviceErrorReceived");
inline constexpr QLatin1StringView sServiceNotificationReceived("serviceNotificationReceived");
inline constexpr QLatin1StringView sVerificationChanged("verificationChanged");
inline constexpr QLatin1StringView sQuitRequestReceived("quitRequestReceived");

} // namespace tarn::vkcore::protocol::method
