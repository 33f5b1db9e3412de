#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>
#include <QtCore/QTimer>

namespace tarn::vkservice::process {

// The listening socket with this path that systemd passed to the service, -1 if there is none. Closes other
// passed descriptors. The caller owns the descriptor.
int inheritedSocket(const QString& pPath);

// Closes what the program that started this one has left open, but for sockets that systemd passed and for
// the standard streams.
void closeInheritedFiles();

// Reports the state of the service to systemd. Does nothing if systemd did not start it.
class SystemdNotifier : public QObject
{
    Q_OBJECT

public:
    explicit SystemdNotifier(QObject* pParent = nullptr);
    // True if systemd expects notifications from this process.
    static bool isListening() { return qEnvironmentVariableIsSet("NOTIFY_SOCKET"); }

    void ready(const QString& pStatus);
    void reloading();
    // From here on asks systemd again and again to extend the stop timeout, as long as the event loop runs.
    void stopping();

private:
    QTimer mWatchdog;
    QTimer mExtension;
};

} // namespace tarn::vkservice::process
