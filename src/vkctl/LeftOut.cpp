#include "LeftOut.h"

#include "internal/PlainText.h"

#include <QtCore/QLocale>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

QString LeftOut::dateText(const QDateTime& pDate)
{
    return QLocale::c().toString(pDate, u"yyyy-MM-dd hh:mm:ss"_s);
}

QString LeftOut::reasonText(const LeftOutPackage& pPackage)
{
    const QString& tReason = pPackage.mReason;
    if (tReason == "held"_L1) {
        return pPackage.mDate.isValid() ? tr("held until %1").arg(dateText(pPackage.mDate)) : tr("held");
    }
    if (tReason == "phase"_L1) {
        return tr("waits for its phase until %1").arg(dateText(pPackage.mDate));
    }
    if (tReason == "halted"_L1) {
        return tr("stopped by its publisher");
    }
    if (tReason == "refused"_L1) {
        return tr("refused");
    }
    if (tReason == "requirement"_L1) {
        return tr("requires %1, which is left out").arg(singleLine(pPackage.mRequired));
    }
    return singleLine(tReason);
}

QStringList LeftOut::lines(const LeftOutPackages& pPackages)
{
    if (pPackages.mPackages.isEmpty()) {
        return {};
    }
    QStringList tLines{tr("Left out by the last update: %1").arg(pPackages.mPackages.size())};
    for (const LeftOutPackage& tPackage : pPackages.mPackages) {
        tLines.append(u"  %1 %2: %3"_s.arg(singleLine(tPackage.mName), singleLine(tPackage.mVersion),
                                           reasonText(tPackage)));
    }
    return tLines;
}

} // namespace tarn::vkctl
