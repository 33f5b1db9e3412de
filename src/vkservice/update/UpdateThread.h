#pragma once

#include "internal/Failure.h"
#include "os/CheckRunner.h"
#include "update/RunRequest.h"

#include <vkcore/Types.h>

#include <QtCore/QObject>
#include <QtCore/QString>

#include <memory>

namespace tarn::os {
class FileSystem;
class ProcessList;
} // namespace tarn::os

namespace tarn::vkservice::update {

// The updates as the main thread sees them: at most one at a time, each a Run on its own thread. The object
// lives on the main thread and emits its signals there.
class UpdateThread : public QObject
{
    Q_OBJECT

public:
    UpdateThread(os::FileSystem& pFileSystem, os::ProcessList& pProcesses,
                 os::CheckRunner& pChecks = os::realCheckRunner(), QObject* pParent = nullptr);
    // Aborts a run in progress and waits for its end.
    ~UpdateThread() override;

    // Repairs what a killed run left and brings the install log up to the current generation. Called once,
    // before the first run. A failure is for the log.
    Failure recover(const RunRequest& pRequest);
    // After recover(): the generation in use has not proven itself yet, and a run with mOnlyTrial does it.
    bool isOnTrial() const;
    // After recover(): why it has put the previous packages in use again, if it has.
    Failure wayBack() const;
    // Makes an earlier generation the current one, and refuses the packages that replaced it. A failure if a
    // run is in progress.
    Failure rollBack(const RunRequest& pRequest, qint64 pGeneration);
    // After recover() or rollBack(): what it has refused.
    QList<packages::Refusal> refused() const;

    // False if a run is in progress.
    bool start(const RunRequest& pRequest);
    // Ends the run at its next safe point; harmless if none is in progress.
    void abort();
    bool isRunning() const;
    Progress progress() const;

Q_SIGNALS:
    void activityChanged(tarn::vkcore::ServiceActivity pActivity);
    // Message types as on the socket: 0 error, 1 warning, 4 information.
    void notification(int pType, const QString& pText, const QString& pDetails);
    void logged(const QString& pLine);
    void error(int pType, const QString& pText, const QString& pDetails);
    // The last signal of a run; isRunning() is false from here on.
    void finished(const tarn::vkservice::update::RunResult& pResult);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace tarn::vkservice::update
