#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"
#include "cmdline/WholeMatch.h"

#include <vkcore/EnhVersion.h>
#include <vkcore/InstallModule.h>

#include <QtCore/QStringBuilder>

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

// The start of the period in a text such as "3d"; false if it is not one.
static bool readPeriod(const QString& pTyped, QDateTime* pFrom)
{
    const QRegularExpressionMatch tMatch = wholeMatch(u"^([0-9]+)([hdwm])$"_s, pTyped);
    if (!tMatch.hasMatch()) {
        return false;
    }
    const int tCount = tMatch.captured(1).toInt(); // 0 if it exceeds an int
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

namespace {

// A text with a place for a value. A month can take half a million of them: QString::arg would look for the
// place in each.
class LineText
{
public:
    explicit LineText(const QString& pText)
        : mBefore(pText.section(u"%1"_s, 0, 0)), mAfter(pText.section(u"%1"_s, 1))
    {
    }

    QString with(const QString& pValue) const { return mBefore % pValue % mAfter; }

private:
    QString mBefore;
    QString mAfter;
};

} // namespace

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
    const LineText tNameLine(tr("Name: %1"));
    const LineText tDateLine(tr("Date: %1"));
    const LineText tVersionLine(tr("Version: %1"));
    const LineText tStatusLine(tr("Status: %1"));
    const LineText tReportLine(tr("Install report: %1"));
    QDateTime tDate;
    QString tDateText; // of tDate: the packages of one run have the same
    for (const GRef2<InstLogEntry>& tEntry : tEntries) {
        const QString tVersion = vkcore::EnhVersion(tEntry->mVersion, tEntry->mVersionDate).toString();
        const QString& tReport = tEntry->mInstallReport.bestValue(tLang);
        if (tEntry->mDate != tDate) {
            tDate = tEntry->mDate;
            tDateText = dateTimeText(tDate);
        }
        printLine(tNameLine.with(tEntry->mName.bestValue(tLang)));
        printLine(tDateLine.with(tDateText));
        printLine(tVersionLine.with(tVersion));
        printLine(tStatusLine.with(getInstallLogStatusText(tEntry->mStatus)));
        if (!tReport.isEmpty()) {
            printLine(tReportLine.with(tReport));
        }
        printLine(QString());
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
