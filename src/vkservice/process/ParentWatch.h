#pragma once

#include <QtCore/QObject>

#include <memory>

class QSocketNotifier;
class QTimer;

namespace tarn::vkservice::process {

// Reports when the parent process has ended.
class ParentWatch : public QObject
{
    Q_OBJECT

public:
    explicit ParentWatch(QObject* pParent = nullptr);
    ~ParentWatch() override;

    // True from the moment when the parent has ended.
    bool isGone() const { return mGone; }

Q_SIGNALS:
    void gone();

private:
    void look();

    int mParentPid;
    int mFd = -1;
    bool mGone = false;
    std::unique_ptr<QSocketNotifier> mNotifier;
    std::unique_ptr<QTimer> mPoll; // for kernels without process descriptors
};

} // namespace tarn::vkservice::process
