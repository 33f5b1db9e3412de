#pragma once

#include <QtCore/QObject>

#include <memory>

class QSocketNotifier;

namespace tarn::vkservice::process {

// Forwards the signals of the service to the event loop.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    // To be called before the process starts a second thread, because threads inherit the mask.
    static void blockSignals();
    // True if a termination signal is pending that no event loop has read yet.
    static bool isEndPending();

    explicit SignalWatch(QObject* pParent = nullptr);
    ~SignalWatch() override;

Q_SIGNALS:
    void endRequested();    // SIGTERM, SIGINT
    void reloadRequested(); // SIGHUP

private:
    void read();

    int mFd = -1;
    std::unique_ptr<QSocketNotifier> mNotifier;
};

} // namespace tarn::vkservice::process
