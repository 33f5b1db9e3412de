#include "CtlApplication.h"
#include "PlainTexts.h"
#include "status/Sections.h"
#include "status/StatusSections.h"

#include "internal/Methods.h"
#include "internal/PlainText.h"

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

namespace {

QString reasonText(const LeftOutPackage& pPackage)
{
    const QString& tReason = pPackage.mReason;
    if (tReason == "held"_L1) {
        return pPackage.mDate.isValid() ? StatusSection::tr("held until %1").arg(dateText(pPackage.mDate))
                                        : StatusSection::tr("held");
    }
    if (tReason == "phase"_L1) {
        return StatusSection::tr("waits for its phase until %1").arg(dateText(pPackage.mDate));
    }
    if (tReason == "halted"_L1) {
        return StatusSection::tr("stopped by its publisher");
    }
    if (tReason == "refused"_L1) {
        return StatusSection::tr("refused");
    }
    if (tReason == "ordinary"_L1) {
        return StatusSection::tr("no security update");
    }
    if (tReason == "requirement"_L1) {
        return StatusSection::tr("requires %1, which is left out").arg(singleLine(pPackage.mRequired));
    }
    return singleLine(tReason);
}

} // namespace

// What was offered to the last update and not taken.
StatusSection leftOutSection(CtlApplication& pApp)
{
    const auto tLeftOut = pApp.call<LeftOutPackages>(method::sGetLeftOut).value_or(LeftOutPackages());
    StatusSection tSection;
    tSection.mMembers = {{u"leftOut"_s, toJson(tLeftOut.mPackages)}};
    if (!tLeftOut.mPackages.isEmpty()) {
        tSection.mLines = {
            StatusSection::tr("Left out by the last update: %1").arg(tLeftOut.mPackages.size())};
    }
    for (const LeftOutPackage& tPackage : tLeftOut.mPackages) {
        const QString tMark =
            tPackage.mSecurity.value_or(false) ? StatusSection::tr("a security update, ") : QString();
        tSection.mLines.append(u"  %1 %2: %3"_s.arg(singleLine(tPackage.mName), singleLine(tPackage.mVersion),
                                                    tMark + reasonText(tPackage)));
    }
    return tSection;
}

} // namespace tarn::vkctl
