// The options of the commands that make a new list of packages.
#pragma once

#include "CommandLine.h"
#include "keys/KeyFolder.h"

#include <optional>

namespace tarn::vkpublish {

struct ListOptions
{
    int mDays = 0;                 // how long the list is valid
    int mDeltas = 0;               // to each new package, at most
    std::optional<int> mPhaseDays; // for what is new; without a value, phases stay as they are
};

// --targets-days, --deltas and --phase-days.
void addListOptions(CommandLine* pLine);
// False, after an error message, if they are not valid.
bool readListOptions(const CommandLine& pLine, ListOptions* pTo);

// Makes the deltas to what is new in the record.
Failure makeDeltas(const CommandLine& pLine, const ListOptions& pOptions, KeyFolder* pKeys);
// Sets the phases of what is new in the record. Without the option, what an interrupted publication has set
// stays: machines may have seen it.
void setPhases(const ListOptions& pOptions, const QDateTime& pNow, KeyFolder* pKeys);

} // namespace tarn::vkpublish
