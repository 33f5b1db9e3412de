#pragma once

#include <QtCore/QObject>

#include <memory>

class QSocketNotifier;
class QTimer;

namespace tarn::vkservice::process {

// Tells when the process that started this one has ended.
class ParentWatch : public QObject
{
    Q_OBJECT

public:
    explicit ParentWatch(QObject* pParent = nullptr);
    ~ParentWatch() override;

    // True from the moment at which the parent has gone.
    bool isGone() const { return mGone; }

Q_SIGNALS:
    void gone();

private:
    void look();

    int mParentPid;
    int mFd = -1;
    bool mGone = false;
    std::unique_ptr<QSocketNotifier> mNotifier;
    std::unique_ptr<QTimer> mPoll; // where the kernel has no descriptors of processes
};

} // namespace tarn::vkservice::process
