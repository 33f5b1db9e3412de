#pragma once

#include <QtCore/QObject>

#include <memory>

class QSocketNotifier;

namespace tarn::vkservice::process {

// The signals that ask something of the service, brought into the event loop.
class SignalWatch : public QObject
{
    Q_OBJECT

public:
    // Has to come before the process has a second thread: threads take the mask over.
    static void blockSignals();
    // Has a signal come that asks for the end, which no event loop has read yet?
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
