// Sends one JSON line to a socket and prints the answer: the baseline for a command with one request.
#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>
#include <QtNetwork/QLocalSocket>

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    QLocalSocket tSocket;
    QObject::connect(&tSocket, &QLocalSocket::connected, &tSocket, [&tSocket] {
        tSocket.write("{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"getScheduleParameters\",\"params\":{}}\n");
    });
    QObject::connect(&tSocket, &QLocalSocket::readyRead, &tSocket, [&tSocket] {
        if (tSocket.canReadLine()) {
            QTextStream(stdout) << tSocket.readLine();
            QCoreApplication::exit(0);
        }
    });
    QObject::connect(&tSocket, &QLocalSocket::errorOccurred, &tSocket, [] { QCoreApplication::exit(1); });
    QTimer::singleShot(0, &tSocket, [&] { tSocket.connectToServer(QCoreApplication::arguments().value(1)); });
    return QCoreApplication::exec();
}
