#include "update/RunTexts.h"

#include "update/FailurePolicy.h"
#include "update/LeftOut.h"
#include "update/Plan.h"

#include <QtCore/QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

Failure serversFault(const Plan& pPlan)
{
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (isServersFault(tPackage.mFailure) && !tPackage.mIsFollowUp) {
            return tPackage.mFailure;
        }
    }
    return {};
}

namespace {

QString inWords(qint64 pBytes)
{
    return QLocale::c().formattedDataSize(pBytes, 1, QLocale::DataSizeSIFormat);
}

QString updatedText(int pInstalled, qint64 pReceived, qint64 pWhole)
{
    const QString tText =
        pInstalled == 1 ? u"1 package was updated"_s : u"%1 packages were updated"_s.arg(pInstalled);
    return pReceived <= pWhole - pWhole / 10 && pReceived > 0
               ? u"%1; %2 of %3 were downloaded."_s.arg(tText, inWords(pReceived), inWords(pWhole))
               : tText + u'.';
}

} // namespace

QString successText(int pInstalled, qint64 pReceived, qint64 pWhole,
                    const QList<vkcore::protocol::LeftOutPackage>& pLeftOut)
{
    const QString tLeftOut = leftOutText(pLeftOut);
    if (pInstalled == 0) {
        return tLeftOut.isEmpty() ? u"All packages are up to date."_s
                                  : u"No updates are available; "_s + tLeftOut;
    }
    const QString tText = updatedText(pInstalled, pReceived, pWhole);
    return tLeftOut.isEmpty() ? tText : tText + u' ' + tLeftOut;
}

QString preparedText(int pCount, qint64 pReceived, const QDateTime& pFrom)
{
    QString tWhat = u"%1 packages are prepared"_s.arg(pCount);
    if (pCount < 2) {
        tWhat = pCount == 1 ? u"1 package is prepared"_s : u"A new generation is prepared"_s;
    }
    const QString tLoad = pReceived > 0 ? u"; %1 were downloaded"_s.arg(inWords(pReceived)) : QString();
    return u"%1 and will be installed from %2 on%3."_s.arg(
        tWhat, QLocale::c().toString(pFrom.toLocalTime(), u"yyyy-MM-dd hh:mm"_s), tLoad);
}

QString beyondRepairText(const QStringList& pNames)
{
    return u"These packages are damaged, and the server does not offer their installed versions any more: %1."_s
        .arg(pNames.join(u", "_s));
}

QString failureText(const Failure& pFailure)
{
    const QString tText = pFailure.mKind == Failure::Kind::OutOfDate
                              ? u"Every update server that answered is out of date."_s
                              : resultText(resultCode(pFailure));
    if (pFailure.mText.isEmpty() || pFailure.mKind == Failure::Kind::Canceled) {
        return tText;
    }
    return u"%1 %2."_s.arg(tText, pFailure.mText);
}

ResultCode failedPackagesCode(const Plan& pPlan)
{
    bool tAllUnreachable = true;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (resultCode(tPackage.mFailure) == ResultVerificationFailed) {
            return ResultVerificationFailed;
        }
        tAllUnreachable = tAllUnreachable && resultCode(tPackage.mFailure) == ResultUnreachable;
    }
    return tAllUnreachable ? ResultUnreachable : ResultInstallFailed;
}

QString failedPackagesText(const Plan& pPlan)
{
    const auto tIt =
        std::find_if(pPlan.mPackages.begin(), pPlan.mPackages.end(), [](const PlannedPackage& pPackage) {
            return pPackage.mFailure && !pPackage.mIsFollowUp;
        });
    return u"%1 %2 of %3 packages could not be updated. %4: %5."_s.arg(resultText(failedPackagesCode(pPlan)))
        .arg(pPlan.failedCount())
        .arg(pPlan.mPackages.size())
        .arg(tIt->name(), tIt->mFailure.mText);
}

} // namespace tarn::vkservice::update
