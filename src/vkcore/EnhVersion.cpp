#include <vkcore/EnhVersion.h>

namespace tarn::vkcore {

EnhVersion::EnhVersion(const Version& pVersion, const QDateTime& pDate) : mVersion(pVersion), mDate(pDate) {}

QString EnhVersion::toString() const
{
    if (!mDate.isValid()) {
        return mVersion.toTarnAppFormat();
    }
    return mVersion.toTarnAppFormat() + QLatin1String(" (") + mDate.date().toString(Qt::ISODate) +
           QLatin1Char(')');
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
