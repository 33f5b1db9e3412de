#pragma once

#include <QtCore/QByteArrayView>

#include <vector>

namespace tarn::vkpublish {

struct Match
{
    qsizetype mAt = 0; // in the base
    qsizetype mLength = 0;
};

// Finds texts in a base, by the sorted list of all its suffixes. Takes four bytes for each byte of the base,
// which must outlive it and have less than 2 GiB.
class SuffixMatcher
{
public:
    explicit SuffixMatcher(QByteArrayView pBase);

    // The longest begin of the text that is in the base; of more than a few KiB that much. One of less than
    // two bytes counts as none.
    Match longest(QByteArrayView pText) const;

private:
    void countPairs();

    QByteArrayView mBase;
    std::vector<int> mSuffixes;
    std::vector<int> mPairs; // where the suffixes with each pair of first bytes begin
};

// How many bytes the two have in common at their begin.
qsizetype commonLength(QByteArrayView pOne, QByteArrayView pOther);

} // namespace tarn::vkpublish
