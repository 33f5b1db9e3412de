// Parses each incoming JSON line and answers with the result true, in the simplest way with Qt.
#include <QtCore/QCoreApplication>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtNetwork/QLocalServer>
#include <QtNetwork/QLocalSocket>

using namespace Qt::StringLiterals;

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
                const QJsonObject tAnswer{
                    {u"jsonrpc"_s, u"2.0"_s}, {u"id"_s, tRequest.value(u"id"_s)}, {u"result"_s, true}};
                tSocket->write(QJsonDocument(tAnswer).toJson(QJsonDocument::Compact) + '\n');
            }
        });
    });
    if (!tServer.listen(QCoreApplication::arguments().value(1))) {
        return 1;
    }
    return QCoreApplication::exec();
}
