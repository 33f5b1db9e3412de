#include <vkcore/EnhVersion.h>

#include <QtCore/QStringBuilder>

#include <array>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

static char* putTwoDigits(char* pAt, int pNumber)
{
    *pAt++ = static_cast<char>('0' + pNumber / 10);
    *pAt++ = static_cast<char>('0' + pNumber % 10);
    return pAt;
}

// QDate::toString takes longer than the rest of the conversion, and lists of versions are long.
static QString isoDate(const QDate& pDate)
{
    int tYear = 0;
    int tMonth = 0;
    int tDay = 0;
    pDate.getDate(&tYear, &tMonth, &tDay);
    if (tYear < 0 || tYear > 9999) {
        return pDate.toString(u"yyyy-MM-dd");
    }
    std::array<char, 10> tText{};
    char* tEnd = putTwoDigits(putTwoDigits(tText.data(), tYear / 100), tYear % 100);
    *tEnd++ = '-';
    tEnd = putTwoDigits(tEnd, tMonth);
    *tEnd++ = '-';
    putTwoDigits(tEnd, tDay);
    return QString::fromLatin1(tText.data(), tText.size());
}

EnhVersion::EnhVersion(const Version& pVersion, const QDateTime& pDate) : mVersion(pVersion), mDate(pDate) {}

QString EnhVersion::toString() const
{
    if (!mDate.isValid()) {
        return mVersion.toTarnAppFormat();
    }
    return mVersion.toTarnAppFormat() % " ("_L1 % isoDate(mDate.date()) % u')';
}

std::weak_ordering EnhVersion::operator<=>(const EnhVersion& pOther) const
{
    if (const auto tOrder = mVersion <=> pOther.mVersion; tOrder != 0) {
        return tOrder;
    }
    if (!mDate.isValid() || !pOther.mDate.isValid()) {
        return mDate.isValid() <=> pOther.mDate.isValid();
    }
    return mDate.toMSecsSinceEpoch() <=> pOther.mDate.toMSecsSinceEpoch();
}

bool EnhVersion::operator==(const EnhVersion& pOther) const
{
    return (*this <=> pOther) == 0;
}

} // namespace tarn::vkcore
