// Times pings on an open connection: "ping bare SOCKET COUNT" as a plain Qt client of the echo server, "ping
// rkm SOCKET COUNT" through the client library. Prints the microseconds for one ping.
#include <vkcore/IPCClient.h>
#include <vkcore/OkiApplication.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QEventLoop>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTextStream>
#include <QtNetwork/QLocalSocket>

#include <functional>

using namespace Qt::StringLiterals;

namespace {

class BenchApplication : public tarn::vkcore::OkiApplication
{
public:
    BenchApplication() : OkiApplication({u"vk"_s}, 0) {}
    void fatalError(const QString&) override {}
    bool saveUserConfig() override { return true; }
};

bool barePing(QLocalSocket& pSocket, int pId)
{
    const QJsonObject tRequest{
        {u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, pId}, {u"method"_s, u"ping"_s}, {u"params"_s, QJsonObject()}};
    pSocket.write(QJsonDocument(tRequest).toJson(QJsonDocument::Compact) + '\n');
    QEventLoop tLoop;
    bool tOk = false;
    const auto tConnection = QObject::connect(&pSocket, &QLocalSocket::readyRead, &tLoop, [&] {
        if (pSocket.canReadLine()) {
            tOk = QJsonDocument::fromJson(pSocket.readLine()).object().value(u"result"_s).toBool();
            tLoop.quit();
        }
    });
    tLoop.exec();
    QObject::disconnect(tConnection);
    return tOk;
}

int measure(int pCount, const std::function<bool(int)>& pPing)
{
    QElapsedTimer tTimer;
    tTimer.start();
    for (int i = 0; i < pCount; ++i) {
        if (!pPing(i)) {
            return 1;
        }
    }
    QTextStream(stdout) << QString::number(double(tTimer.nsecsElapsed()) / 1000.0 / pCount, 'f', 2) << '\n';
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    const QStringList tArguments = QCoreApplication::arguments();
    const int tCount = tArguments.value(3).toInt();
    if (tArguments.value(1) == "bare"_L1) {
        QLocalSocket tSocket;
        tSocket.connectToServer(tArguments.value(2));
        return tSocket.waitForConnected(5000) ? measure(tCount, [&](int i) { return barePing(tSocket, i); })
                                              : 1;
    }
    tarn::vkcore::GRef<BenchApplication> tOwner(new BenchApplication);
    tarn::vkcore::IPCClient tClient(tOwner.get(), nullptr);
    tClient.setServerName(tArguments.value(2));
    return tClient.testConnect(5000) ? measure(tCount, [&](int) { return tClient.ping(); }) : 1;
}
