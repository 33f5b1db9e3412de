// What a signer gets from another machine: a payload to review, first of the input, and what it is compared
// with, after a line "---"; and a signature file.
#include "keys/SignatureFile.h"
#include "review/Review.h"

#include <algorithm>
#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn::vkpublish;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    const QByteArray tInput(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    (void)SignatureFile::fromJson(tInput);
    const qsizetype tEnd = tInput.indexOf("\n---\n");
    const auto tNew = readPayload(tInput.left(tEnd));
    if (!tNew) {
        return 0;
    }
    const auto tOld = readPayload(tInput.mid(tEnd + 5));
    const bool tComparable = tEnd >= 0 && tOld && tOld->mRole == tNew->mRole;
    for (const QString& tLine :
         review(*tNew, tComparable ? std::optional(*tOld) : std::nullopt, u"before"_s)) {
        const bool tIsPlain = std::none_of(tLine.begin(), tLine.end(), [](QChar pChar) {
            return pChar.category() == QChar::Other_Control || pChar == u'\u202e';
        });
        if (!tIsPlain || tLine.size() > 500) {
            std::abort();
        }
    }
    return 0;
}
