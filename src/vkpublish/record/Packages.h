#pragma once

#include "record/TargetList.h"

namespace tarn::vkpublish {

// A file of a list in the key folder. Each change of the list makes a file with a higher number.
struct ListFile
{
    qint64 mNumber = 0; // 0: none
    qint64 mCount = 0;  // of its lines; a list of changes may have more, which were added later

    bool operator==(const ListFile& pOther) const = default;
};

// The packages of a record.
struct Packages
{
    TargetList mTargets;          // as the next publish will offer them
    TargetList mPublishedTargets; // as the last publish offered them
    TargetList mWithdrawnTargets; // as they were last published
    // Where they are. The targets are the published ones with the changes.
    ListFile mPublishedFile;
    ListFile mWithdrawnFile;
    ListFile mChangesFile;
};

} // namespace tarn::vkpublish
