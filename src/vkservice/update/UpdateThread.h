#pragma once

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
    UpdateThread(os::FileSystem& pFileSystem, os::ProcessList& pProcesses, QObject* pParent = nullptr);
    // Aborts a run in progress and waits for its end.
    ~UpdateThread() override;

    // Repairs what a killed run left and brings the install log up to the current generation. Called once,
    // before the first run. False with a reason for the log if the folders are unusable.
    bool recover(const RunRequest& pRequest, QString* pError);

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
    void error(int pType, const QString& pText, const QString& pDetails);
    // The last signal of a run; isRunning() is false from here on.
    void finished(const tarn::vkservice::update::RunResult& pResult);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace tarn::vkservice::update
