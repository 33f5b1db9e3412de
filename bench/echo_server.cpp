// Parses each JSON line that comes in and answers it with a result of true, as plainly as Qt lets one write
// it.
#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    QLocalServer tServer;
    QLocalServer::removeServer(QCoreApplication::arguments().value(1));
    QObject::connect(&tServer, &QLocalServer::newConnection, &tServer, [&tServer] {
        QLocalSocket* tSocket = tServer.nextPendingConnection();
        QObject::connect(tSocket, &QLocalSocket::readyRead, tSocket, [tSocket] {
            while (tSocket->canReadLine()) {
                const QJsonObject tRequest = QJsonDocument::fromJson(tSocket->readLine()).object();
                const QJsonObject tAnswer{{QStringLiteral("jsonrpc"), QStringLiteral("2.0")},
                                          {QStringLiteral("id"), tRequest.value(QStringLiteral("id"))},
                                          {QStringLiteral("result"), true}};
                tSocket->write(QJsonDocument(tAnswer).toJson(QJsonDocument::Compact) + '\n');
            }
        });
    });
    if (!tServer.listen(QCoreApplication::arguments().value(1))) {
        return 1;
    }
    return QCoreApplication::exec();
}
