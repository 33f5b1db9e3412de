#include "tuf/PathPattern.h"

#include <QtCore/QList>

namespace tarn::tuf {

bool matchesPattern(const QString& pPath, const QString& pPattern)
{
    // Code points, so that '?' matches a whole character.
    const QList<uint> tPath = pPath.toUcs4();
    const QList<uint> tPattern = pPattern.toUcs4();
    qsizetype i = 0;
    qsizetype j = 0;
    qsizetype tStar = -1; // the last '*'; backtracking only to it suffices and keeps the time quadratic
    qsizetype tRetry = 0;
    while (i < tPath.size()) {
        const uint tWanted = j < tPattern.size() ? tPattern[j] : 0;
        if (j < tPattern.size() && tWanted == '*') {
            tStar = j++;
            tRetry = i;
        } else if (j < tPattern.size() && (tWanted == tPath[i] || (tWanted == '?' && tPath[i] != '/'))) {
            ++i;
            ++j;
        } else if (tStar >= 0 && tPath[tRetry] != '/') {
            i = ++tRetry;
            j = tStar + 1;
        } else {
            return false;
        }
    }
    while (j < tPattern.size() && tPattern[j] == '*') {
        ++j;
    }
    return j == tPattern.size();
}

} // namespace tarn::tuf
