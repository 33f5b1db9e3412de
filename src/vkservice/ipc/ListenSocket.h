#pragma once

#include <QtCore/QObject>
#include <QtCore/QString>

#include <sys/types.h>

#include <memory>
#include <optional>

class QSocketNotifier;
class QTimer;

namespace tarn::vkservice::ipc {

// The listening end of the service's socket. QLocalServer is not enough for it: that one closes itself at the
// first accept that fails (a process out of descriptors), takes over a live socket of its name without
// asking, and removes whatever lies at its path when it ends.
class ListenSocket : public QObject
{
    Q_OBJECT

public:
    explicit ListenSocket(QObject* pParent = nullptr);
    // Removes the socket file, if it is still the one that this object made.
    ~ListenSocket() override;

    // Mode 0600, or 0660 and the group. A socket file that nobody listens on is taken over; so is one of a
    // process that runs neither as root nor as this user, which is no service. False, with the reason in
    // *pError, where a service answers already or the file can't be made.
    bool listen(const QString& pPath, std::optional<gid_t> pGroup, QString* pError);
    // Listens on a socket that somebody else has made, and leaves its file to them. Owns the descriptor.
    void adopt(int pFd);
    void close();
    // Does a service listen at the path?
    static bool isServed(const QString& pPath);

Q_SIGNALS:
    // The receiver owns the descriptor.
    void accepted(int pSocket);

private:
    void watch(int pFd);
    void accept();
    void pause();

    int mFd = -1;
    QByteArray mPath; // of the file to remove at the end; empty where it is not ours
    dev_t mDevice = 0;
    ino_t mInode = 0;
    std::unique_ptr<QSocketNotifier> mNotifier;
    std::unique_ptr<QTimer> mPause;
};

} // namespace tarn::vkservice::ipc
