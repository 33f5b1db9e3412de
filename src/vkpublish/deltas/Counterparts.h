#pragma once

#include "trees/IndexEntry.h"

#include <QtCore/QHash>

#include <vector>

namespace tarn::vkpublish {

// Finds the old file that a new one was probably made from: the one at the same path, else one whose path or
// name differs in its digits alone, else one that is gone, has the same suffix and nearly the same size.
class Counterparts
{
public:
    using Entries = std::vector<trees::IndexEntry>;

    Counterparts(const Entries& pOld, const Entries& pNew);

    // The place of the old file in its list; -1 for none.
    qint64 of(const trees::IndexEntry& pNew) const;

private:
    // Old files by what they have in common with a new one, each list in the order of sizes.
    using Groups = QHash<QByteArray, std::vector<qint64>>;

    qint64 nearest(const std::vector<qint64>& pGroup, qint64 pSize) const;

    const Entries& mOld;
    std::vector<Groups> mLevels;
};

} // namespace tarn::vkpublish
