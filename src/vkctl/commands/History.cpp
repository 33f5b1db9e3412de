#include "commands/Commands.h"
#include "CtlApplication.h"
#include "PlainTexts.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

namespace {

void makePlain(History* pHistory)
{
    for (HistoryRun& tRun : pHistory->mRuns) {
        if (tRun.mText) {
            tRun.mText = singleLine(*tRun.mText, vkcore::sMaxMessage);
        }
        for (HistoryPackage& tPackage : tRun.mPackages) {
            for (QString* tText : {&tPackage.mName, &tPackage.mTitle, &tPackage.mVersion, &tPackage.mPrevious,
                                   &tPackage.mStatus}) {
                *tText = singleLine(*tText);
            }
            tPackage.mReport = singleLine(tPackage.mReport, vkcore::sMaxMessage);
        }
    }
}

QString versionsText(const HistoryPackage& pPackage)
{
    return pPackage.mPrevious.isEmpty() || pPackage.mPrevious == pPackage.mVersion
               ? pPackage.mVersion
               : u"%1 -> %2"_s.arg(pPackage.mPrevious, pPackage.mVersion);
}

QString statusText(const QString& pStatus)
{
    const std::pair<QLatin1StringView, QString> tTexts[] = {
        {"ok"_L1, CtlApplication::tr("installed")},
        {"error"_L1, CtlApplication::tr("not installed")},
        {"warning"_L1, CtlApplication::tr("installed with a warning")},
        {"child_packages_updated"_L1, CtlApplication::tr("requirements were updated")},
    };
    for (const auto& [tWord, tText] : tTexts) {
        if (pStatus == tWord) {
            return tText;
        }
    }
    return pStatus;
}

QString packageLine(const HistoryPackage& pPackage)
{
    const QString tLine =
        u"  %1 %2: %3"_s.arg(pPackage.mName, versionsText(pPackage), statusText(pPackage.mStatus));
    return pPackage.mStatus == "error"_L1 && !pPackage.mReport.isEmpty() ? tLine + u". "_s + pPackage.mReport
                                                                         : tLine;
}

QString text(const History& pHistory)
{
    QStringList tLines;
    for (const HistoryRun& tRun : pHistory.mRuns) {
        tLines.append(tRun.mText ? u"%1: %2"_s.arg(dateText(tRun.mDate), *tRun.mText) : dateText(tRun.mDate));
        for (const HistoryPackage& tPackage : tRun.mPackages) {
            tLines.append(packageLine(tPackage));
        }
    }
    return tLines.isEmpty() ? CtlApplication::tr("No update has installed anything yet.")
                            : tLines.join(u'\n');
}

} // namespace

int history(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    auto tHistory = pApp.call<History>(method::sGetHistory);
    if (!tHistory) {
        return pApp.fail(CtlApplication::tr("Failed to get the installed updates."));
    }
    makePlain(&*tHistory);
    if (pApp.arguments().mIsJson) {
        pApp.printJson(toJson(*tHistory));
    } else {
        pApp.print(text(*tHistory));
    }
    return StatusSound;
}

} // namespace tarn::vkctl
