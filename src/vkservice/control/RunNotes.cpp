#include "control/RunNotes.h"

#include "control/OperatorView.h"
#include "control/UpdateControl.h"
#include "process/ServiceApplication.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using process::JournalEvent;
using process::LogLevel;
using vkcore::protocol::HistoryPackage;
using vkcore::protocol::HistoryRun;

namespace {

QString yesNo(bool pValue)
{
    return pValue ? u"yes"_s : u"no"_s;
}

JournalEvent eventOf(const char* pId, const HistoryPackage& pPackage)
{
    return {pId,
            {{"VK_PACKAGE", pPackage.mName},
             {"VK_VERSION", pPackage.mVersion},
             {"VK_PREVIOUS_VERSION", pPackage.mPrevious}}};
}

} // namespace

RunNotes::RunNotes(UpdateControl& pUpdates, OperatorView& pView, process::ServiceApplication& pApp)
    : mUpdates(pUpdates), mView(pView), mApp(pApp)
{
    connect(&mUpdates, &UpdateControl::runStarted, this, &RunNotes::onStarted);
    connect(&mUpdates, &UpdateControl::serverUnusable, this, &RunNotes::onServerUnusable);
    connect(&mUpdates, &UpdateControl::runEnded, this, &RunNotes::onEnded);
}

void RunNotes::onStarted(bool pManual)
{
    mApp.note(LogLevel::Info, u"An update begins."_s,
              {process::message::sRunStarted, {{"VK_MANUAL", yesNo(pManual)}}});
}

void RunNotes::onServerUnusable(const QString& pServer)
{
    mApp.note(LogLevel::Warning, u"An update server can't be used. %1"_s.arg(pServer),
              {process::message::sServerUnusable, {{"VK_SERVER", pServer}}});
}

void RunNotes::onEnded(const RunRecord& pRecord, bool pManual)
{
    notePackages(pRecord);
    const bool tIsSuccess = pRecord.mCode == ResultSuccess;
    mApp.write(tIsSuccess ? LogLevel::Notice : LogLevel::Warning,
               u"The update has ended: %1"_s.arg(mUpdates.resultText(pRecord)),
               {tIsSuccess ? process::message::sRunSucceeded : process::message::sRunFailed,
                {{"VK_RESULT", QString::number(pRecord.mCode)}, {"VK_MANUAL", yesNo(pManual)}}});
}

// Of the run that has just ended, if the install log has it: twice if it first ended the trial of a run that
// was killed.
void RunNotes::notePackages(const RunRecord& pRecord)
{
    const auto tHistory = mView.history(2);
    const auto tRuns = tHistory ? tHistory->mRuns : QList<HistoryRun>();
    for (auto tRun = tRuns.rbegin(); tRun != tRuns.rend(); ++tRun) {
        if (pRecord.mBegan.isValid() && tRun->mDate >= pRecord.mBegan) {
            notePackages(*tRun);
        }
    }
}

void RunNotes::notePackages(const HistoryRun& pRun)
{
    for (const HistoryPackage& tPackage : pRun.mPackages) {
        const QString tLabel = tPackage.mName + u' ' + tPackage.mVersion;
        if (tPackage.mStatus == "ok"_L1) {
            mApp.note(LogLevel::Info, u"The package %1 was installed."_s.arg(tLabel),
                      eventOf(process::message::sPackageInstalled, tPackage));
        } else if (tPackage.mStatus == "error"_L1) {
            mApp.note(LogLevel::Error,
                      u"The package %1 was not installed. %2"_s.arg(tLabel, tPackage.mReport),
                      eventOf(process::message::sPackageFailed, tPackage));
        }
    }
}

} // namespace tarn::vkservice::control
