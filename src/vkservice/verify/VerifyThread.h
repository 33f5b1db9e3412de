#pragma once

#include "verify/VerifyRequest.h"

#include <QtCore/QObject>

#include <memory>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::verify {

// A verification of the installed packages on a thread of its own, at idle priority. The object lives on the
// main thread and emits its signals there.
class VerifyThread : public QObject
{
    Q_OBJECT

public:
    explicit VerifyThread(os::FileSystem& pFileSystem, QObject* pParent = nullptr);
    // Aborts a verification and waits for its end.
    ~VerifyThread() override;

    // False if one is in progress.
    bool start(const VerifyRequest& pRequest);
    // Ends it soon, within one package; harmless if none is in progress.
    void abort();
    bool isRunning() const;
    VerifyProgress progress() const;

Q_SIGNALS:
    void packageChecked(const tarn::packages::PackageCheck& pCheck);
    // The last signal of a verification; isRunning() is false from here on.
    void finished(const tarn::vkservice::verify::VerifyOutcome& pOutcome);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace tarn::vkservice::verify
