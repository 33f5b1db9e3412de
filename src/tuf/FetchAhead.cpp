#include "tuf/FetchAhead.h"

using namespace Qt::StringLiterals;

namespace tarn::tuf {

void FetchAhead::put(const QString& pPath, const QByteArray& pBytes)
{
    mFiles.insert(pPath, {.mPath = pPath, .mMaxLength = pBytes.size(), .mBytes = pBytes});
}

void FetchAhead::ask(QList<FetchedFile> pFiles)
{
    // One alone can as well wait for its turn.
    if (pFiles.size() < 2 || !mFetcher.fetchTogether(&pFiles)) {
        return;
    }
    for (const FetchedFile& tFile : std::as_const(pFiles)) {
        if (!(tFile.mIsGuess && tFile.mFailure)) {
            mFiles.insert(tFile.mPath, tFile);
        }
    }
}

Result<QByteArray> FetchAhead::fetch(const FetchedFile& pWanted)
{
    const FetchedFile tHere = mFiles.take(pWanted.mPath);
    if (!tHere.mPath.isEmpty() && tHere.mBytes.size() <= pWanted.mMaxLength) {
        return tHere.mFailure ? Result<QByteArray>(tHere.mFailure) : tHere.mBytes;
    }
    QByteArray tBytes;
    if (Failure tFailure = mFetcher.fetch(pWanted.mPath, pWanted.mMaxLength, &tBytes)) {
        return tFailure;
    }
    if (tBytes.size() > pWanted.mMaxLength) {
        return Failure::untrusted(
            u"The file %1 has more than %2 bytes"_s.arg(pWanted.mPath).arg(pWanted.mMaxLength));
    }
    return tBytes;
}

} // namespace tarn::tuf
