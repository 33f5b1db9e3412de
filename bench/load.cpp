// Measures how fast a service answers a ping under load: "load SOCKET PID". Each row adds to the load of the
// ones before it. Exits with 1 if an answer took longer than the service promises.
#include "RawPeer.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int sPings = 3000;
constexpr double sPromisedMs = 100;

std::atomic<bool> sStop = false;

double memoryMib(int pPid, const char* pField)
{
    QFile tFile(u"/proc/%1/status"_s.arg(pPid));
    tFile.open(QIODevice::ReadOnly);
    const QByteArray tStatus = tFile.readAll();
    const QByteArray tRest = tStatus.mid(tStatus.indexOf(pField) + qstrlen(pField)).trimmed();
    return tRest.left(tRest.indexOf(' ')).toDouble() / 1024;
}

// Prints the row and returns the longest time in milliseconds.
double measure(const char* pName, const QString& pSocket, int pPid)
{
    RawPeer tPeer(pSocket);
    std::vector<double> tTimes;
    for (int i = 0; i < sPings; ++i) {
        QElapsedTimer tTimer;
        tTimer.start();
        if (tPeer.call(u"ping"_s) != QJsonValue(true)) {
            std::fprintf(stderr, "load: a ping was not answered\n");
            std::exit(1);
        }
        tTimes.push_back(static_cast<double>(tTimer.nsecsElapsed()) / 1e6);
    }
    std::sort(tTimes.begin(), tTimes.end());
    std::printf("| %-44s | %8.2f ms | %8.2f ms | %8.2f ms | %6.1f MiB |\n", pName, tTimes[sPings / 2],
                tTimes[sPings * 99 / 100], tTimes.back(), memoryMib(pPid, "VmRSS:"));
    return tTimes.back();
}

QByteArray requests(const QByteArray& pMethod, const QByteArray& pParams, int pCount)
{
    return QByteArray(R"({"jsonrpc":"2.0","id":1,"method":")" + pMethod + R"(","params":)" + pParams + "}\n")
        .repeated(pCount);
}

void beBusy(const QString& pSocket)
{
    RawPeer tPeer(pSocket);
    while (!sStop && tPeer.call(u"getMonitoringSettings"_s).isObject()) {
    }
}

// Requests more than the service keeps for it, is disconnected, and connects again.
void neverRead(const QString& pSocket)
{
    while (!sStop) {
        const RawPeer tPeer(pSocket);
        tPeer.send(requests("getConfigValue", R"({"name":"load","default":""})", 100));
        pollfd tPoll{tPeer.descriptor(), POLLRDHUP, 0};
        ::poll(&tPoll, 1, 10000);
    }
}

// Sends as fast as the service reads, and reads all answers.
void flood(const QString& pSocket)
{
    RawPeer tPeer(pSocket);
    const QByteArray tRequests = requests("getServiceProgress", "{}", 2000);
    std::thread tReader([&] { tPeer.waitForEnd(600000); });
    while (!sStop && tPeer.send(tRequests)) {
    }
    ::shutdown(tPeer.descriptor(), SHUT_RDWR);
    tReader.join();
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: load SOCKET PID\n");
        return 2;
    }
    const QString tSocket = QString::fromLocal8Bit(argv[1]);
    const int tPid = std::atoi(argv[2]);
    double tLongest = measure("a ping to an idle service", tSocket, tPid);
    std::vector<RawPeer> tIdle;
    for (int i = 0; i < 1000; ++i) {
        tIdle.emplace_back(tSocket);
        tIdle.back().call(u"ping"_s);
    }
    tLongest = std::max(tLongest, measure("beside 1,000 idle connections", tSocket, tPid));

    tIdle.front().call(u"setConfigValue"_s,
                       {{u"name"_s, u"load"_s}, {u"value"_s, QString(900 * 1024, u'x')}});
    const struct
    {
        const char* mName;
        int mCount;
        void (*mBehave)(const QString&);
    } tPeers[] = {{"and 50 busy ones", 50, &beBusy},
                  {"and one that never reads", 1, &neverRead},
                  {"and one that floods", 1, &flood}};
    std::vector<std::thread> tThreads;
    for (const auto& tKind : tPeers) {
        for (int i = 0; i < tKind.mCount; ++i) {
            tThreads.emplace_back(tKind.mBehave, tSocket);
        }
        tLongest = std::max(tLongest, measure(tKind.mName, tSocket, tPid));
    }
    sStop = true;
    for (std::thread& tThread : tThreads) {
        tThread.join();
    }
    const bool tKept = tLongest <= sPromisedMs;
    std::printf("| %-44s | %8s    | %8s    | %8s    | %6.1f MiB |\n",
                "every answer within 100 ms; peak memory", "", "", tKept ? "yes" : "NO",
                memoryMib(tPid, "VmHWM:"));
    return tKept ? 0 : 1;
}
