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

Failure FetchAhead::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    pTo->clear();
    const FetchedFile tFile = mFiles.take(pPath);
    const bool tIsHere = !tFile.mPath.isEmpty() && tFile.mBytes.size() <= pMaxLength;
    if (tIsHere && tFile.mFailure) {
        return tFile.mFailure;
    }
    if (tIsHere) {
        *pTo = tFile.mBytes;
        return {};
    }
    const Failure tFailure = mFetcher.fetch(pPath, pMaxLength, pTo);
    if (!tFailure && pTo->size() > pMaxLength) {
        return Failure{Failure::Kind::Untrusted,
                       u"The file %1 has more than %2 bytes"_s.arg(pPath).arg(pMaxLength)};
    }
    return tFailure;
}

} // namespace tarn::tuf
