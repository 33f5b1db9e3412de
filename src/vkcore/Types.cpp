#include <vkcore/Types.h>

#include <QtCore/QDataStream>
#include <QtCore/QDebug>

#include <array>

namespace tarn::vkcore {

namespace {

template <typename T>
QDataStream& readNumber(QDataStream& pStream, T& pTo)
{
    qint32 tValue = 0;
    pStream >> tValue;
    pTo = static_cast<T>(tValue);
    return pStream;
}

} // namespace

QDataStream& operator<<(QDataStream& pStream, ServiceStatus pStatus)
{
    return pStream << qint32(pStatus);
}
QDataStream& operator>>(QDataStream& pStream, ServiceStatus& pStatus)
{
    return readNumber(pStream, pStatus);
}
QDebug operator<<(QDebug pStream, ServiceStatus pStatus)
{
    return pStream << int(pStatus);
}
QDataStream& operator<<(QDataStream& pStream, ServiceActivity pActivity)
{
    return pStream << qint32(pActivity);
}
QDataStream& operator>>(QDataStream& pStream, ServiceActivity& pActivity)
{
    return readNumber(pStream, pActivity);
}
QDebug operator<<(QDebug pStream, ServiceActivity pActivity)
{
    return pStream << int(pActivity);
}

QString Types::serviceActivityToStr(ServiceActivity pActivity)
{
    static constexpr std::array sNames{
        "none",      "downloading", "verifying",        "waiting for applications",
        "preparing", "installing",  "removing obsolete"};
    const auto tIndex = static_cast<size_t>(pActivity);
    return tIndex < sNames.size() ? QString::fromLatin1(sNames[tIndex]) : QString::number(int(pActivity));
}

} // namespace tarn::vkcore
