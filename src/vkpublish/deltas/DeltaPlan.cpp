#include "deltas/DeltaPlan.h"

#include "deltas/Counterparts.h"

#include <algorithm>
#include <set>

namespace tarn::vkpublish {

using trees::ByteRange;
using trees::EntryKind;
using trees::Piece;
using trees::Segment;
using trees::Tree;

namespace {

// What a segment makes, and how much more of the old file its base has on both sides. Suffix sorting takes
// four bytes for each byte of the base.
constexpr qint64 sMakes = 2 * 1024 * 1024;
constexpr qint64 sMargin = 1024 * 1024;
constexpr qint64 sMaxBase = sMakes + 2 * sMargin;

// Files of the new version whose content no file of the old one has, the first of each content.
std::vector<size_t> changedFiles(const Tree& pOld, const Tree& pNew)
{
    std::vector<Tree::Digest> tOld;
    tOld.reserve(pOld.count());
    for (size_t i = 0; i < pOld.count(); ++i) {
        tOld.push_back(pOld.at(i).mHash);
    }
    std::sort(tOld.begin(), tOld.end());
    std::set<Tree::Digest> tSeen;
    std::vector<size_t> tChanged;
    for (size_t i = 0; i < pNew.count(); ++i) {
        const Tree::Node& tNode = pNew.at(i);
        if (tNode.mKind == EntryKind::File && tNode.mSize > 0 &&
            !std::binary_search(tOld.begin(), tOld.end(), tNode.mHash) && tSeen.insert(tNode.mHash).second) {
            tChanged.push_back(i);
        }
    }
    return tChanged;
}

class Plan
{
public:
    Plan(const PackageVersion& pOld, const PackageVersion& pNew) : mOld(pOld), mNew(pNew) {}

    std::vector<Segment> run()
    {
        add(0, 0);
        closeSegment();
        const std::vector<size_t> tFiles = changedFiles(mOld.tree(), mNew.tree());
        const std::vector<qint64> tFrom = counterparts(mOld.tree(), mNew.tree(), tFiles);
        for (size_t i = 0; i < tFiles.size(); ++i) {
            add(static_cast<qint64>(tFiles[i] + 1), tFrom[i] + 1);
        }
        closeSegment();
        return std::move(mSegments);
    }

private:
    // A file, and the old one to make it from: 0 for none, where the file is not the text of the index.
    void add(qint64 pEntry, qint64 pOldEntry)
    {
        const qint64 tSize = mNew.sizes()[static_cast<size_t>(pEntry)];
        const qint64 tParts = (tSize + sMakes - 1) / sMakes;
        if (tParts > 1) {
            closeSegment();
        }
        for (qint64 i = 0; i < tParts; ++i) {
            const Piece tFrom{pOldEntry,
                              pEntry == 0 || pOldEntry > 0
                                  ? counterpart(i, tParts, mOld.sizes()[static_cast<size_t>(pOldEntry)])
                                  : ByteRange()};
            append({pEntry, part(i, tParts, tSize)}, tFrom);
        }
        if (tParts > 1) {
            closeSegment();
        }
    }

    static ByteRange part(qint64 pPart, qint64 pParts, qint64 pSize)
    {
        const qint64 tLength = pSize / pParts;
        const qint64 tFirst = tLength * pPart;
        return {tFirst, pPart + 1 == pParts ? pSize - tFirst : tLength};
    }

    // Around the same part of the old file.
    static ByteRange counterpart(qint64 pPart, qint64 pParts, qint64 pOldSize)
    {
        const ByteRange tPart = part(pPart, pParts, pOldSize);
        const qint64 tFirst = std::max<qint64>(tPart.mFirst - sMargin, 0);
        return {tFirst, std::min({tPart.end() + sMargin - tFirst, pOldSize - tFirst, sMaxBase})};
    }

    void append(const Piece& pPiece, const Piece& pFrom)
    {
        const bool tIsNew = pFrom.mBytes.mLength > 0 &&
                            std::find(mOpen.mFrom.begin(), mOpen.mFrom.end(), pFrom) == mOpen.mFrom.end();
        const bool tFits = mOpen.mMakes.size() < trees::DeltaLimits::sPieces &&
                           totalLength(mOpen.mMakes) + pPiece.mBytes.mLength <= sMakes &&
                           (!tIsNew || totalLength(mOpen.mFrom) + pFrom.mBytes.mLength <= sMaxBase);
        if (!tFits) {
            closeSegment();
        }
        mOpen.mMakes.push_back(pPiece);
        if (tIsNew || (!tFits && pFrom.mBytes.mLength > 0)) {
            mOpen.mFrom.push_back(pFrom);
        }
    }

    void closeSegment()
    {
        if (!mOpen.mMakes.empty()) {
            mSegments.push_back(std::exchange(mOpen, {}));
        }
    }

    const PackageVersion& mOld;
    const PackageVersion& mNew;
    Segment mOpen;
    std::vector<Segment> mSegments;
};

} // namespace

std::vector<Segment> planDelta(const PackageVersion& pOld, const PackageVersion& pNew)
{
    return Plan(pOld, pNew).run();
}

} // namespace tarn::vkpublish
