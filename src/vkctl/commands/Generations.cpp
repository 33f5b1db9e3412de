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

QString line(const GenerationEntry& pGeneration)
{
    QStringList tPackages;
    for (const PackageVersion& tPackage : pGeneration.mPackages) {
        tPackages.append(singleLine(tPackage.mName + u' ' + tPackage.mVersion));
    }
    const QString tMark = pGeneration.mOnTrial   ? CtlApplication::tr(" (on trial)")
                          : pGeneration.mCurrent ? CtlApplication::tr(" (current)")
                                                 : QString();
    return u"%1%2  %3  %4"_s.arg(pGeneration.mGeneration)
        .arg(tMark, dateText(pGeneration.mDate), tPackages.join(u", "_s));
}

} // namespace

int generations(CtlApplication& pApp)
{
    if (!pApp.connectToService()) {
        return StatusFailed;
    }
    const auto tGenerations = pApp.call<GenerationEntries>(method::sGetGenerations);
    if (!tGenerations) {
        return pApp.fail(CtlApplication::tr("Failed to get the generations."));
    }
    if (pApp.arguments().mIsJson) {
        pApp.printJson(toJson(*tGenerations));
        return StatusSound;
    }
    for (const GenerationEntry& tGeneration : tGenerations->mGenerations) {
        pApp.print(line(tGeneration));
    }
    if (tGenerations->mGenerations.isEmpty()) {
        pApp.print(CtlApplication::tr("Nothing is installed."));
    }
    return StatusSound;
}

} // namespace tarn::vkctl
