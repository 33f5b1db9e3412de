#include "CtlApplication.h"
#include "PlainTexts.h"
#include "status/Sections.h"
#include "status/StatusSections.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore;
using namespace vkcore::protocol;

namespace {

QString activityText(const Overview& pOverview)
{
    const std::pair<ServiceActivity, QString> tTexts[] = {
        {ActivityDownloading, StatusSection::tr("downloading")},
        {ActivityVerifying, StatusSection::tr("verifying")},
        {ActivityWaitingForApps, StatusSection::tr("waiting for applications to be closed")},
        {ActivityPreparing, StatusSection::tr("preparing the installation")},
        {ActivityInstalling, StatusSection::tr("installing")},
        {ActivityRemovingObsolete, StatusSection::tr("removing old packages")},
    };
    const bool tIsRunning = pOverview.mStatus == StatusUpdating || pOverview.mStatus == StatusAborting;
    for (const auto& [tActivity, tText] : tTexts) {
        if (tIsRunning && tActivity == pOverview.mActivity) {
            return tText;
        }
    }
    if (tIsRunning) {
        return StatusSection::tr("updating");
    }
    return pOverview.mStatus == StatusSuppressed ? StatusSection::tr("none, updates are suppressed")
                                                 : StatusSection::tr("none");
}

QString dateOr(const QDateTime& pDate, const QString& pOtherwise)
{
    return pDate.isValid() ? dateText(pDate) : pOtherwise;
}

QString expiryText(const QDateTime& pExpires)
{
    if (!pExpires.isValid()) {
        return StatusSection::tr("not known");
    }
    return pExpires > QDateTime::currentDateTime()
               ? dateText(pExpires)
               : StatusSection::tr("%1, which is over").arg(dateText(pExpires));
}

// Only what is not as usual.
QStringList securityLines(const Overview& pOverview)
{
    QStringList tLines;
    if (pOverview.mOnly.value_or(QString()) == "security"_L1) {
        tLines.append(StatusSection::tr("Updates install: security updates alone"));
    }
    QStringList tPending;
    for (const PackageVersion& tFix : pOverview.mPendingFixes.value_or(QList<PackageVersion>())) {
        tPending.append(singleLine(tFix.mName) + u' ' + singleLine(tFix.mVersion));
    }
    if (!tPending.isEmpty()) {
        tLines.append(
            StatusSection::tr("Security updates that are not installed: %1").arg(tPending.join(u", "_s)));
    }
    return tLines;
}

} // namespace

// The last run, the next one, and what goes on.
StatusSection updateSection(CtlApplication& pApp)
{
    const auto tOverview = pApp.call<Overview>(method::sGetOverview);
    if (!tOverview) {
        return {};
    }
    const QString tText = singleLine(tOverview->mText, sMaxMessage);
    StatusSection tSection;
    tSection.mLines = {
        StatusSection::tr("Last update: %1").arg(dateOr(tOverview->mEnded, StatusSection::tr("never"))),
        StatusSection::tr("Result: %1").arg(tText),
        StatusSection::tr("Last success: %1")
            .arg(dateOr(tOverview->mLastSuccess, StatusSection::tr("never"))),
        StatusSection::tr("Next check: %1")
            .arg(dateOr(tOverview->mNextCheck, StatusSection::tr("not scheduled"))),
        StatusSection::tr("Activity: %1").arg(activityText(*tOverview)),
        StatusSection::tr("Trusted metadata is valid until: %1").arg(expiryText(tOverview->mMetadataExpires)),
    };
    tSection.mLines += securityLines(*tOverview);
    QJsonObject tJson = toJson(*tOverview);
    tJson.insert("text"_L1, tText);
    tSection.mMembers = {{u"overview"_s, tJson}};
    return tSection;
}

} // namespace tarn::vkctl
