#pragma once

#include <QtCore/QObject>

namespace tarn::vkcore::protocol {
struct HistoryRun;
}
namespace tarn::vkservice {
struct RunRecord;
}
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class OperatorView;
class UpdateControl;

// Writes what happens in updates to the journal, as events that programs can find.
class RunNotes : public QObject
{
    Q_OBJECT

public:
    RunNotes(UpdateControl& pUpdates, OperatorView& pView, process::ServiceApplication& pApp);

private:
    void onStarted(bool pManual);
    void onServerUnusable(const QString& pServer);
    void onEnded(const RunRecord& pRecord, bool pManual);
    void notePackages(const RunRecord& pRecord);
    void notePackages(const vkcore::protocol::HistoryRun& pRun);

    UpdateControl& mUpdates;
    OperatorView& mView;
    process::ServiceApplication& mApp;
};

} // namespace tarn::vkservice::control
