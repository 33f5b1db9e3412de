#include "update/run/ServerRound.h"

#include "update/FailurePolicy.h"
#include "update/Preparation.h"
#include "update/Reporter.h"
#include "update/run/RunParts.h"
#include "update/RunTexts.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

bool ServerRound::isOver() const
{
    return mNextServer == mParts.mRequest.mServers.size();
}

Failure ServerRound::find(std::unique_ptr<Attempt>* pBest)
{
    while (!isOver()) {
        const ServerAccess& tServer = mParts.mRequest.mServers.at(mNextServer++);
        auto tAttempt = std::make_unique<Attempt>();
        Failure tFailure = ask(tServer, tAttempt.get());
        if (!tFailure) {
            tFailure = fetch(tAttempt.get(), pBest->get());
        }
        if (tFailure && !mayAskAnotherServer(tFailure)) {
            return tFailure;
        }
        if (tFailure) {
            note(serverLabel(tServer), tFailure, isOver());
            continue;
        }
        const Failure tServersFault = serversFault(tAttempt->mPlan);
        // The results of an earlier server are outdated now.
        if (*pBest && (*pBest)->mSession->snapshotVersion() != tAttempt->mSession->snapshotVersion()) {
            pBest->reset();
        }
        if (!*pBest || tAttempt->mPlan.failedCount() < (*pBest)->mPlan.failedCount()) {
            *pBest = std::move(tAttempt);
        }
        if ((*pBest)->mPlan.failedCount() == 0 || !tServersFault) {
            return {};
        }
        note(serverLabel(tServer), tServersFault, isOver());
    }
    return {};
}

Failure ServerRound::ask(const ServerAccess& pServer, Attempt* pAttempt)
{
    const RunRequest& tRequest = mParts.mRequest;
    mParts.mReporter.begin(vkcore::ActivityDownloading, true, 0, true);
    mParts.mReporter.setText(serverLabel(pServer));
    auto tSession = std::make_unique<ServerSession>(tRequest, pServer, mParts.machineState(),
                                                    mParts.mFileSystem, mParts.mAbort);
    QStringList tWarnings;
    if (const Failure tFailure = tSession->open(&tWarnings)) {
        return tFailure;
    }
    for (const QString& tWarning : tWarnings) {
        mParts.warn(u"The server %1 offers an unusable package. %2"_s.arg(tSession->label(), tWarning));
    }
    const Workplace& tWorkplace = mParts.mWorkplace;
    pAttempt->mPlan = makePlan(tSession->offers(), tWorkplace.installed(), tWorkplace.folders(),
                               {tRequest.mAppLanguage, tRequest.mDataLanguage}, tRequest.mDamaged,
                               tRequest.mChoices, tSession->now());
    if (tSession->hasNothingNew()) {
        pAttempt->mPlan.mLeftOut = tSession->leftOutBefore();
    }
    pAttempt->mSession = std::move(tSession);
    return {};
}

Failure ServerRound::fetch(Attempt* pAttempt, const Attempt* pEarlier)
{
    Plan& tPlan = pAttempt->mPlan;
    if (pEarlier != nullptr) {
        Preparation::takeOver(pEarlier->mPlan, mParts.mWorkplace.folders(), &tPlan);
    } else if (const Failure tFailure = mParts.mPrepared.adopt(&tPlan)) {
        return tFailure;
    }
    mParts.mDownloads.keep(tPlan);
    pAttempt->mSupply = std::make_unique<Supply>(SupplyParts{.mFileSystem = mParts.mFileSystem,
                                                             .mFolders = mParts.mWorkplace.folders(),
                                                             .mInstalled = mParts.mWorkplace.installed(),
                                                             .mDownloads = mParts.mDownloads,
                                                             .mBudget = mBudget,
                                                             .mIndexes = mParts.mIndexes,
                                                             .mReporter = mParts.mReporter,
                                                             .mAbort = mParts.mAbort},
                                                 pAttempt->mSession->source(), tPlan);
    if (const Failure tFailure = pAttempt->mSupply->fetchLostIndexes(&mParts.mLostIndexes)) {
        return tFailure;
    }
    if (tPlan.failedCount() == tPlan.mPackages.size()) {
        return {};
    }
    if (const Failure tFailure = pAttempt->mSupply->fetch()) {
        return tFailure;
    }
    tPlan.spreadFailures();
    return {};
}

void ServerRound::note(const QString& pServer, const Failure& pFailure, bool pIsLast)
{
    mTroubles.push_back({pServer, pFailure});
    // The result of the run reports the failure of the last server, which may be the only one.
    if (!pIsLast) {
        mParts.mReporter.notify(MessageWarning,
                                u"The server %1 can't be used, trying the next one."_s.arg(pServer),
                                pFailure.mText);
    }
}

QStringList ServerRound::unusable() const
{
    QStringList tTexts;
    for (const Trouble& tTrouble : mTroubles) {
        tTexts.append(u"%1: %2"_s.arg(tTrouble.mServer, tTrouble.mFailure.mText));
    }
    return tTexts;
}

Failure ServerRound::allFailed() const
{
    if (mParts.mRequest.mServers.isEmpty()) {
        return {Failure::Kind::NoServer, mParts.mRequest.mWhyNoServer};
    }
    // From the least to the most important for users.
    static const QList<ResultCode> sWeights{ResultNoServer, ResultUnreachable, ResultInstallFailed,
                                            ResultVerificationFailed};
    Failure tWorst{Failure::Kind::NoServer, QString()};
    for (const Trouble& tTrouble : mTroubles) {
        const bool tIsAsBad = resultCode(tTrouble.mFailure) == resultCode(tWorst);
        if (sWeights.indexOf(resultCode(tTrouble.mFailure)) > sWeights.indexOf(resultCode(tWorst)) ||
            (tIsAsBad && tWorst.mKind == Failure::Kind::OutOfDate)) {
            tWorst = tTrouble.mFailure;
        }
    }
    // A server without any of the files of a repository counts as unreachable.
    if (tWorst.mKind == Failure::Kind::NotFound) {
        tWorst.mKind = Failure::Kind::Unreachable;
    }
    tWorst.mText = unusable().join(u"; "_s);
    return tWorst;
}

} // namespace tarn::vkservice::update
