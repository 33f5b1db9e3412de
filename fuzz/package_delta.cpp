// A delta, header and segments, applied to old files of known lengths. Whatever it says, it names bytes that
// the old files have, makes each new file once and completely, and no more bytes than that.
//
// An input is a delta, or the text of its header; behind an empty line follow the packed bytes. Where these
// are no zstd frame, each line becomes one, so that the fuzzer can get at the content.
#include "support/ScratchFolder.h"
#include "support/StoredFrame.h"

#include "os/FileSystem.h"
#include "trees/DeltaReader.h"
#include "trees/Patch.h"

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn;
using namespace tarn::trees;

namespace {

const EntrySizes sOld{100, -1, 4000, 0, 7, 100'000};
const EntrySizes sNew{100, -1, 4100, 0, 7, 60, 100'000};

void require(bool pCondition)
{
    if (!pCondition) {
        std::abort();
    }
}

QByteArray delta(const QByteArray& pInput)
{
    if (pInput.startsWith(fuzz::sZstdMagic)) {
        return pInput;
    }
    const qsizetype tEnd = pInput.indexOf("\n\n") + 1;
    QByteArray tPacked = tEnd > 0 ? pInput.mid(tEnd + 1) : QByteArray();
    if (!tPacked.startsWith(fuzz::sZstdMagic)) {
        const QByteArrayList tLines = tPacked.split('\n');
        tPacked.clear();
        for (const QByteArray& tLine : tLines) {
            tPacked += fuzz::storedFrame(tLine, true);
        }
    }
    return fuzz::storedFrame(tEnd > 0 ? pInput.first(tEnd) : pInput) + tPacked;
}

void apply(const Segment& pSegment, const QByteArray& pDelta)
{
    require(pSegment.mPacked.mFirst > 0 && pSegment.mPacked.end() <= pDelta.size());
    const QByteArray tBase(totalLength(pSegment.mFrom), 'b');
    QByteArray tMade;
    const Failure tFailure = applySegment(
        pSegment, tBase, QByteArrayView(pDelta).sliced(pSegment.mPacked.mFirst, pSegment.mPacked.mLength),
        &tMade);
    require(tFailure || tMade.size() == totalLength(pSegment.mMakes));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    static const fuzz::ScratchFolder sFolder;
    const QByteArray tDelta =
        delta(QByteArray(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize)));
    const QString tName = u"delta"_s;
    sFolder.write(tName, tDelta);

    DeltaReader tReader(os::realFileSystem());
    if (tReader.open(sFolder.path(tName), tDelta.size())) {
        return 0;
    }
    EntrySizes tMade(sNew.size());
    Segment tSegment;
    Failure tFailure;
    while (tReader.next(&tSegment, &tFailure)) {
        for (const Piece& tPiece : tSegment.mMakes) {
            qint64& tDone = tMade.at(static_cast<size_t>(tPiece.mEntry));
            require(tPiece.mBytes.mFirst == tDone);
            tDone = tPiece.mBytes.end();
        }
        for (const Piece& tPiece : tSegment.mFrom) {
            require(tPiece.mEntry == 0 || tPiece.mBytes.end() <= sOld.at(static_cast<size_t>(tPiece.mEntry)));
        }
        if (tSegment.makesIndex() && totalLength(tSegment.mMakes) > 1000 * 1000) {
            return 0; // sound, but slow
        }
        apply(tSegment, tDelta);
        if (tMade[0] == tReader.header().mNew.mLength) {
            tReader.setEntries(sOld, sNew);
        }
    }
    for (size_t i = 1; i < tMade.size() && !tFailure; ++i) {
        require(tMade[i] == 0 || tMade[i] == sNew[i]);
    }
    return 0;
}
