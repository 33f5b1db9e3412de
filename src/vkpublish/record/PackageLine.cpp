#include "record/PackageLine.h"

#include "tuf/Hashes.h"

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sHashLength = 64;

} // namespace

QByteArray PackageLine::toBytes() const
{
    if (mName.isEmpty() || mName.contains(' ') || mName.contains('\n') || mText.isEmpty() ||
        mText.contains('\n')) {
        return QByteArray();
    }
    const QByteArray tRest = mName + ' ' + mText;
    return tuf::sha256(tRest) + ' ' + tRest + '\n';
}

std::optional<PackageLine> PackageLine::parse(QByteArrayView pLine)
{
    if (pLine.size() <= sHashLength || pLine[sHashLength] != ' ') {
        return std::nullopt;
    }
    const QByteArrayView tRest = pLine.sliced(sHashLength + 1);
    const qsizetype tSpace = tRest.indexOf(' ');
    if (tSpace <= 0 || tuf::sha256(tRest) != pLine.first(sHashLength)) {
        return std::nullopt;
    }
    return PackageLine{tRest.first(tSpace).toByteArray(), tRest.sliced(tSpace + 1).toByteArray()};
}

bool PackageLine::isNamed(QByteArrayView pLine, const QByteArray& pPrefix)
{
    return pLine.size() > sHashLength && pLine.sliced(sHashLength + 1).startsWith(pPrefix);
}

} // namespace tarn::vkpublish
