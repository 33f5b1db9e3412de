#include "commands/ListOptions.h"

#include "publication/NewDeltas.h"
#include "publication/Releases.h"

#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

void addListOptions(CommandLine* pLine)
{
    pLine->addOption(u"targets-days"_s, u"How long the list of packages is valid, in days"_s, u"DAYS"_s,
                     u"365"_s);
    pLine->addOption(u"deltas"_s,
                     u"From how many versions before to make deltas to each new package, 0 to 16"_s, u"N"_s,
                     u"2"_s);
    pLine->addOption(u"phase-days"_s,
                     u"Over how many days what is new reaches the machines that update by schedule; 0 ends "
                     "all phases"_s,
                     u"N"_s);
}

bool readListOptions(const CommandLine& pLine, ListOptions* pTo)
{
    const std::optional<int> tDays = pLine.number("targets-days", 1, 3650);
    const std::optional<int> tDeltas = pLine.number("deltas", 0, 16);
    if (!tDays || !tDeltas) {
        return false;
    }
    *pTo = {.mDays = *tDays, .mDeltas = *tDeltas, .mPhaseDays = std::nullopt};
    if (pLine.isSet("phase-days")) {
        pTo->mPhaseDays = pLine.number("phase-days", 0, 365);
    }
    return pTo->mPhaseDays || !pLine.isSet("phase-days");
}

Failure makeDeltas(const CommandLine& pLine, const ListOptions& pOptions, KeyFolder* pKeys)
{
    return NewDeltas(os::realFileSystem(), pLine.repository(), *pKeys).make(pOptions.mDeltas);
}

void setPhases(const ListOptions& pOptions, const QDateTime& pNow, KeyFolder* pKeys)
{
    if (pOptions.mPhaseDays) {
        setPhases(&pKeys->mRecord, pNow, *pOptions.mPhaseDays);
    }
}

} // namespace tarn::vkpublish
