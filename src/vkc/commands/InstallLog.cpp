#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"
#include "cmdline/WholeMatch.h"

#include <vkcore/EnhVersion.h>
#include <vkcore/InstallModule.h>

#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

using vkcore::GRef;
using vkcore::GRef2;
using vkcore::InstLogEntry;

// In 32 bits, where a large count wraps around.
static int wrappedProduct(int pCount, int pFactor)
{
    return static_cast<int>(static_cast<unsigned>(pCount) * static_cast<unsigned>(pFactor));
}

// The start of the period that a text such as "3d" tells; false if it tells none.
static bool readPeriod(const QString& pTyped, QDateTime* pFrom)
{
    const QRegularExpressionMatch tMatch = wholeMatch(u"^([0-9]+)([hdwm])$"_s, pTyped);
    if (!tMatch.hasMatch()) {
        return false;
    }
    const int tCount = tMatch.captured(1).toInt(); // 0 for what no int can hold
    switch (tMatch.captured(2).at(0).unicode()) {
    case u'h':
        *pFrom = pFrom->addSecs(wrappedProduct(tCount, -3600));
        break;
    case u'd':
        *pFrom = pFrom->addDays(-tCount);
        break;
    case u'w':
        *pFrom = pFrom->addDays(wrappedProduct(tCount, -7));
        break;
    default:
        *pFrom = pFrom->addMonths(-tCount);
        break;
    }
    return true;
}

static bool fetchLog(vkcore::InstallModule* pModule, QList<GRef2<InstLogEntry>>* pEntries,
                     const QDateTime& pFrom, bool pTopLevelOnly)
{
    return pModule->init() &&
           pModule->getActiveInstaller()->getInstallLog(pEntries, pFrom, QDateTime(),
                                                        std::numeric_limits<int>::max(), pTopLevelOnly);
}

int VKCApplication::cmdInstallLog()
{
    QDateTime tFrom = QDateTime::currentDateTime();
    if (optPassed(OPT_INTERVAL)) {
        const QString tTyped = optArg(OPT_INTERVAL, QString());
        if (!readPeriod(tTyped, &tFrom)) {
            return fail(tr("Invalid interval '%1'").arg(tTyped));
        }
    } else {
        tFrom = tFrom.addMonths(-1);
    }
    const bool tAll = optEnabled(OPT_ALL, false);

    const GRef<vkcore::InstallModule> tModule(new vkcore::InstallModule(this, 14));
    QList<GRef2<InstLogEntry>> tEntries;
    if (!fetchLog(tModule.get(), &tEntries, tFrom, !tAll)) {
        return fail(tr("Could not get installation log."));
    }

    const QString tLang = getAppLang();
    const QString tNameLine = tr("Name: %1");
    const QString tDateLine = tr("Date: %1");
    const QString tVersionLine = tr("Version: %1");
    const QString tStatusLine = tr("Status: %1");
    const QString tReportLine = tr("Install report: %1");
    QDateTime tDate;
    QString tDateText; // of tDate: the packages of one run have the same
    for (const GRef2<InstLogEntry>& tEntry : tEntries) {
        const QString tVersion = vkcore::EnhVersion(tEntry->mVersion, tEntry->mVersionDate).toString();
        const QString& tReport = tEntry->mInstallReport.bestValue(tLang);
        if (tEntry->mDate != tDate) {
            tDate = tEntry->mDate;
            tDateText = dateTimeText(tDate);
        }
        writeStdOut(tNameLine.arg(tEntry->mName.bestValue(tLang)), true, true);
        writeStdOut(tDateLine.arg(tDateText), true, true);
        writeStdOut(tVersionLine.arg(tVersion), true, true);
        writeStdOut(tStatusLine.arg(getInstallLogStatusText(tEntry->mStatus)), true, true);
        if (!tReport.isEmpty()) {
            writeStdOut(tReportLine.arg(tReport), true, true);
        }
        writeStdOut(QString(), true, true);
    }
    return 0;
}

QString VKCApplication::getInstallLogStatusText(const QString& pStatus)
{
    if (pStatus == u"ok"_s || pStatus == u"child_packages_updated"_s) {
        return tr("OK");
    }
    if (pStatus == u"warning"_s) {
        return tr("Warning");
    }
    if (pStatus == u"error"_s) {
        return tr("Error");
    }
    return pStatus;
}

} // namespace tarn::vkc
