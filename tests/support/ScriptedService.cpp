#include "ScriptedService.h"
#include "UnixSocket.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QRegularExpression>

#include <algorithm>
#include <chrono>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

// The answers of an idle service.
const char sAnswers[] = R"({
    "hello": {"protocol": 1, "service": "scripted", "version": "1.0.0.0", "pid": 1, "worker": false},
    "ping": true, "isServiceActive": false, "isVKClientActive": false, "getServiceStatus": 0,
    "getServiceProgress": {"activity": 0, "cancelable": true, "text": "", "bytesDone": 0, "bytesTotal": 0,
        "done": 0, "total": 0, "package": 0, "packageCount": 0, "failedCount": 0},
    "getLastServiceResult": 1, "getLastServiceResultStr": "All is well",
    "triggerUpdate": true, "abortUpdate": true, "quitService": true, "reloadConfig": true,
    "getDefaultServer": {"uri": "https://updates.example.org/kdml", "user": "anna", "password": "secret"},
    "updateDefaultServer": true,
    "getNetProxySettings": {"mode": 2, "proxy": {"enabled": true, "configured": true, "host": "proxy.example.org",
        "port": 3128, "user": "paul", "password": null, "passwordChanged": false}},
    "setNetProxySettings": true, "getKdmlDataDirectory": "/srv/kdml", "setKdmlDataDirectory": true,
    "getLanguages": {"app": "de", "data": "fr"}, "setLanguages": true, "getConfigValue": "value",
    "setConfigValue": true,
    "getScheduleParameters": {"mode": 2, "flags": 0, "nextCheck": "2031-02-03T04:05:06", "periodCount": 3,
        "unit": 1, "extra": "kept"},
    "setScheduleParameters": true,
    "getMonitoringSettings": {"eventMailsEnabled": true, "eventMailOnUpdate": false, "eventMailOnOverdue": true,
        "eventMailOnManualIntervention": false, "summarizedMailsEnabled": false,
        "summarizedMailsOnChangeOnly": true, "summarizedMailPeriod": 7, "updateOverduePeriod": 14,
        "clientName": "rechner", "notificationEmailAddresses": [{"address": "a@example.org", "verified": true},
        {"address": "b@example.org", "verified": false}], "lastSummary": "2030-01-02T03:04:05",
        "clientSettings": {"text1": "one", "text2": null, "text3": "", "text4": "four",
        "date1": "2029-01-01T00:00:00", "date2": null}},
    "setMonitoringSettings": true,
    "getServerList": {"revision": 5, "servers": [
        {"name": "alpha", "uri": "https://alpha.example.org/kdml", "userName": "anna", "enabled": true,
         "default": true, "savePassword": true},
        {"name": "beta", "uri": "file:///srv/up%20dates", "userName": "", "enabled": false, "default": false,
         "savePassword": false},
        {"name": "alphabet", "uri": "https://c.example.org", "userName": "", "enabled": true, "default": false,
         "savePassword": false}]},
    "addServer": true, "changeServer": true, "removeServer": true, "enterMonitorMode": true
})";

QJsonValue valueOf(const QByteArray& pJson)
{
    QJsonParseError tError;
    const QJsonDocument tDocument = QJsonDocument::fromJson("[" + pJson + "]", &tError);
    if (tError.error != QJsonParseError::NoError) {
        qFatal("no JSON: %s", pJson.constData());
    }
    return tDocument.array().at(0);
}

QByteArray compact(const QJsonObject& pObject)
{
    return QJsonDocument(pObject).toJson(QJsonDocument::Compact);
}

QByteArray toLine(QJsonObject pObject)
{
    pObject.insert(q("jsonrpc"), q("2.0"));
    return compact(pObject) + '\n';
}

} // namespace

void ScriptedService::Peer::reply(const QByteArray& pResult)
{
    send(answerLine(pResult));
}

void ScriptedService::Peer::refuse()
{
    send(toLine({{q("id"), mCallId}, {q("error"), valueOf(R"({"code": 1, "message": "no"})")}}));
}

void ScriptedService::Peer::send(const QByteArray& pBytes)
{
    sendAll(mFd, pBytes); // a client may be gone already
}

// The descriptor stays open until the service's thread has seen the end.
void ScriptedService::Peer::hangUp()
{
    ::shutdown(mFd, SHUT_RDWR);
}

QByteArray ScriptedService::Peer::answerLine(const QByteArray& pResult) const
{
    return toLine({{q("id"), mCallId}, {q("result"), valueOf(pResult)}});
}

ScriptedService::ScriptedService(const QString& pSocket, const Script& pScript)
{
    const QJsonObject tAnswers = valueOf(sAnswers).toObject();
    for (auto tIt = tAnswers.begin(); tIt != tAnswers.end(); ++tIt) {
        const QByteArray tArray = QJsonDocument(QJsonArray{tIt.value()}).toJson(QJsonDocument::Compact);
        answer(tIt.key(), tArray.mid(1, tArray.size() - 2));
    }
    if (pScript) {
        pScript(*this);
    }

    QFile::remove(pSocket);
    mListener = boundSocket(pSocket);
    if (::listen(mListener, 100) != 0 || ::pipe2(mWake, O_CLOEXEC) != 0) {
        qFatal("can't listen on %s", qPrintable(pSocket));
    }
    mThread = std::thread([this] { serve(); });
}

ScriptedService::~ScriptedService()
{
    ::close(mWake[1]);
    mThread.join();
    for (const Peer& tPeer : mPeers) {
        ::close(tPeer.mFd);
    }
    ::close(mListener);
    ::close(mWake[0]);
}

void ScriptedService::onCall(const Text& pMethod, const Handler& pHandler)
{
    const std::lock_guard tLock(mMutex);
    mHandlers.insert(pMethod, pHandler);
}

void ScriptedService::answer(const Text& pMethod, const QByteArray& pResult)
{
    onCall(pMethod, [pResult](Peer& pPeer, const QJsonObject&) { pPeer.reply(pResult); });
}

void ScriptedService::refuse(const Text& pMethod)
{
    onCall(pMethod, [](Peer& pPeer, const QJsonObject&) { pPeer.refuse(); });
}

void ScriptedService::ignore(const Text& pMethod)
{
    onCall(pMethod, [](Peer&, const QJsonObject&) {});
}

QByteArray ScriptedService::eventLine(const Text& pMethod, const QByteArray& pParams)
{
    return toLine({{q("method"), pMethod}, {q("params"), valueOf(pParams)}});
}

void ScriptedService::sendEvent(const Text& pMethod, const QByteArray& pParams)
{
    send(eventLine(pMethod, pParams));
}

void ScriptedService::send(const QByteArray& pBytes)
{
    const std::lock_guard tLock(mMutex);
    for (Peer& tPeer : mPeers) {
        if (tPeer.mMonitors) {
            tPeer.send(pBytes);
        }
    }
}

void ScriptedService::hangUp(bool pMonitorsOnly)
{
    const std::lock_guard tLock(mMutex);
    for (Peer& tPeer : mPeers) {
        if (tPeer.mMonitors || !pMonitorsOnly) {
            tPeer.hangUp();
        }
    }
}

QStringList ScriptedService::calls() const
{
    return allCalls().filter(QRegularExpression(q("^(?!hello|ping)")));
}

QStringList ScriptedService::allCalls() const
{
    const std::lock_guard tLock(mMutex);
    return mCalls;
}

bool ScriptedService::waitForCall(const Text& pMethod, int pCount, int pTimeoutMs) const
{
    std::unique_lock tLock(mMutex);
    return mChanged.wait_for(tLock, std::chrono::milliseconds(pTimeoutMs),
                             [&] { return mMethods.count(pMethod) >= pCount; });
}

bool ScriptedService::waitForHangUp(int pTimeoutMs) const
{
    std::unique_lock tLock(mMutex);
    return mChanged.wait_for(tLock, std::chrono::milliseconds(pTimeoutMs), [&] {
        return std::all_of(mPeers.begin(), mPeers.end(), [](const Peer& pPeer) { return pPeer.mMonitors; });
    });
}

void ScriptedService::serve()
{
    for (;;) {
        std::vector<pollfd> tPolls{{mWake[0], POLLIN, 0}, {mListener, POLLIN, 0}};
        // Only this thread changes the list.
        for (const Peer& tPeer : mPeers) {
            tPolls.push_back({tPeer.mFd, POLLIN, 0});
        }
        ::poll(tPolls.data(), tPolls.size(), -1);
        if (tPolls[0].revents != 0) {
            return;
        }
        size_t tIndex = 2;
        for (auto tIt = mPeers.begin(); tIt != mPeers.end(); ++tIndex) {
            const bool tEnded = tPolls[tIndex].revents != 0 && !readFrom(*tIt);
            const auto tNext = std::next(tIt);
            if (tEnded) {
                const std::lock_guard tLock(mMutex);
                ::close(tIt->mFd);
                mPeers.erase(tIt);
                mChanged.notify_all();
            }
            tIt = tNext;
        }
        if (tPolls[1].revents != 0) {
            acceptPeer();
        }
    }
}

void ScriptedService::acceptPeer()
{
    const int tFd = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC);
    if (tFd >= 0) {
        const std::lock_guard tLock(mMutex);
        mPeers.emplace_back().mFd = tFd;
    }
}

bool ScriptedService::readFrom(Peer& pPeer)
{
    char tBytes[64 * 1024];
    const ssize_t tCount = ::recv(pPeer.mFd, tBytes, sizeof tBytes, 0);
    if (tCount <= 0) {
        return false;
    }
    pPeer.mInput.append(tBytes, tCount);
    qsizetype tStart = 0;
    for (qsizetype tEnd; (tEnd = pPeer.mInput.indexOf('\n', tStart)) >= 0; tStart = tEnd + 1) {
        handle(pPeer, pPeer.mInput.mid(tStart, tEnd - tStart));
    }
    pPeer.mInput.remove(0, tStart);
    return true;
}

void ScriptedService::handle(Peer& pPeer, const QByteArray& pLine)
{
    const QJsonObject tRequest = QJsonDocument::fromJson(pLine).object();
    const QString tMethod = tRequest.value(q("method")).toString();
    const QJsonObject tParams = tRequest.value(q("params")).toObject();
    Handler tHandler;
    {
        const std::lock_guard tLock(mMutex);
        mCalls.append(tParams.isEmpty() ? tMethod : tMethod + u' ' + q(compact(tParams)));
        pPeer.mCallId = tRequest.value(q("id"));
        pPeer.mMonitors = pPeer.mMonitors || tMethod == q("enterMonitorMode");
        tHandler = mHandlers.value(tMethod);
    }
    if (tHandler) {
        tHandler(pPeer, tParams);
    }
    // Announced only now, so that a waiting test knows that the answer was written.
    const std::lock_guard tLock(mMutex);
    mMethods.append(tMethod);
    mChanged.notify_all();
}
