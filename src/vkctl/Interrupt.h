#pragma once

#include <QtCore/QObject>
#include <QtCore/QSocketNotifier>

namespace tarn::vkctl {

// SIGINT, SIGTERM and SIGHUP as a signal of the event loop. One object at a time.
class Interrupt : public QObject
{
    Q_OBJECT

public:
    Interrupt();
    ~Interrupt() override;

Q_SIGNALS:
    void received();

private:
    int mFd;
    QSocketNotifier mNotifier;
};

} // namespace tarn::vkctl
