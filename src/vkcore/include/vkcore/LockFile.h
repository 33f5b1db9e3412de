#pragma once

#include <vkcore/Export.h>

#include <QtCore/QString>

namespace tarn::vkcore {

class Application;

// An advisory lock between processes on a file, which is created if missing and never removed. The lock ends
// with the object or the process.
class VKCORE_EXPORT LockFile
{
public:
    enum LockMode : int
    {
        Shared = 0,    // several holders at once; for readers
        Exclusive = 1, // one holder; for a writer
    };

    LockFile(Application* pApp, const QString& pPath, LockMode pMode);
    ~LockFile();
    LockFile(const LockFile&) = delete;
    LockFile& operator=(const LockFile&) = delete;

    // Tries for pTimeoutMs milliseconds, every pIntervalMs. False if the lock was not acquired in time or the
    // file could not be opened; the reason is logged if pLogFailure is true.
    bool lock(int pTimeoutMs, int pIntervalMs, bool pLogFailure);

private:
    Application* mApp;
    QString mPath;
    LockMode mMode;
    int mFd = -1;
};

} // namespace tarn::vkcore
