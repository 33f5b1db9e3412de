#pragma once

#include <vkcore/IPCClient.h>

#include <QtCore/QProcess>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkc {

// The way of a program to the service: to one that runs, or else to a worker, a service that it starts for
// itself from its own folder. Each failure is in the log of the program.
class ServiceLink
{
public:
    explicit ServiceLink(vkcore::Application& pApp) : mApp(pApp) {}

    // The socket that the user named; not called: the default one.
    void setSocket(const QString& pName) { mSocket = pName; }
    // Gives a client the socket.
    void prepare(vkcore::IPCClient* pClient) const;
    // Connects the client. Without a service it starts a worker, if it may, at most once.
    bool connect(vkcore::IPCClient* pClient, bool pStartService);
    // True once this program has tried to start a worker.
    bool hasWorker() const { return mWorker != nullptr; }

    // From now on no worker is started.
    void cancel() { mCanceled = true; }
    // The worker has announced its end.
    void releaseWorker() { mWorker = nullptr; }
    // Asks the worker to end, and makes it. To be called before the event loop is gone.
    void endWorker();

private:
    bool startWorker();
    // Asks a worker that was just started for a sign of life, as long as its process runs.
    bool pingWorker(vkcore::IPCClient* pClient);

    vkcore::Application& mApp;
    std::optional<QString> mSocket;
    QProcess* mWorker = nullptr; // a child of mApp
    bool mCanceled = false;
};

} // namespace tarn::vkc
