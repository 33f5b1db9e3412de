#pragma once

#include "trees/Delta.h"

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayView>

namespace tarn::trees {

// One step of a bsdiff patch, see Delta.h.
struct PatchStep
{
    qint64 mSeek = 0; // in the base, from where the last step ended
    qint64 mAdd = 0;  // bytes of the base, each with the difference added
    qint64 mCopy = 0; // bytes of the extra

    bool operator==(const PatchStep&) const = default;
};

void appendStep(const PatchStep& pStep, QByteArray* pControl);
// Takes a step off the begin; false where there is none, or one with lengths that are negative.
bool takeStep(QByteArrayView* pControl, PatchStep* pTo);

// What a segment makes out of its base and its packed bytes, which are its signed ones: the caller hands in
// as many as the segment tells. Needs no more memory than twice what it makes and some 100 KiB. Whatever
// the bytes are, the result has the length that the segment tells, or there is a failure.
Failure applySegment(const Segment& pSegment, QByteArrayView pBase, QByteArrayView pPacked, QByteArray* pTo);

} // namespace tarn::trees
