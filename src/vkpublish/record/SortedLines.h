#pragma once

#include "record/PackageLine.h"

#include "internal/Failure.h"

#include <QtCore/QString>

#include <functional>

namespace tarn::vkpublish {

// The lines of a file that is sorted by their names. Those with a prefix are found by bisection, so the time
// hardly depends on how many others there are. Every line that is looked at must be whole.
class SortedLines
{
public:
    using Take = std::function<void(const PackageLine& pLine)>;

    // pFd is open, and stays the caller's. pPath: for messages.
    SortedLines(int pFd, const QString& pPath) : mFd(pFd), mPath(pPath) {}

    // A failure if the file has lines, and pHasLines says that it must not, or the other way round.
    Failure read(const QByteArray& pPrefix, bool pHasLines, const Take& pTake) const;

private:
    struct Place
    {
        qint64 mBegin = 0;
        qint64 mEnd = 0; // of the next line
        PackageLine mLine;
    };

    Result<Place> lineAt(qint64 pOffset) const;
    Result<qint64> firstNotBefore(const QByteArray& pPrefix, qint64 pSize) const;
    Result<qint64> beginOf(qint64 pOffset) const;
    Result<QByteArray> bytes(qint64 pFrom, qint64 pMost) const;
    Failure damaged() const;

    int mFd;
    QString mPath;
};

} // namespace tarn::vkpublish
