#pragma once

#include "internal/Failure.h"

#include <QtCore/QObject>
#include <QtCore/QString>

#include <sys/types.h>

#include <memory>
#include <optional>

class QSocketNotifier;
class QTimer;

namespace tarn::vkservice::ipc {

// The listening end of the service's socket. QLocalServer does not suffice: it closes itself at the first
// failed accept (a process out of descriptors), takes over a live socket of its name without asking, and
// removes any file at its path when it ends.
class ListenSocket : public QObject
{
    Q_OBJECT

public:
    explicit ListenSocket(QObject* pParent = nullptr);
    // Removes the socket file if it is still the one that this object created.
    ~ListenSocket() override;

    // Mode 0600, or 0660 and the group. Replaces a socket file without a listener, and also one of a process
    // of a user who may not run a service. A failure if
    // a service already answers or the file cannot be created.
    Failure listen(const QString& pPath, std::optional<gid_t> pGroup);
    // Listens on a socket that another process created, and leaves the file to that process. Owns the
    // descriptor.
    void adopt(int pFd);
    // Accepts those who have connected so far, refuses all others, and closes.
    void finish();
    void close();

Q_SIGNALS:
    // The receiver owns the descriptor.
    void accepted(int pSocket);

private:
    void watch(int pFd);
    void accept(int pMost);
    void pause();

    int mFd = -1;
    QByteArray mPath; // of the file to remove at the end; empty if the file is not ours
    dev_t mDevice = 0;
    ino_t mInode = 0;
    std::unique_ptr<QSocketNotifier> mNotifier;
    std::unique_ptr<QTimer> mPause;
};

} // namespace tarn::vkservice::ipc
