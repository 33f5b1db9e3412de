#include <vkcore/Version.h>

#include <QtCore/QStringBuilder>
#include <QtCore/QStringList>

#include <array>

namespace tarn::vkcore {

Version Version::fromString(const QString& pText, bool* pOk)
{
    const QStringList tParts = pText.split(u'.');
    std::array<int, 4> tNumbers{};
    bool tOk = tParts.size() <= 4;
    for (qsizetype i = 0; tOk && i < tParts.size(); ++i) {
        const QString& tPart = tParts[i];
        // toInt alone would take signs and blanks.
        tOk = !tPart.isEmpty() && tPart[0].isDigit() && tPart.back().isDigit();
        if (tOk) {
            tNumbers[static_cast<size_t>(i)] = tPart.toInt(&tOk);
        }
    }
    if (pOk != nullptr) {
        *pOk = tOk;
    }
    return tOk ? Version(tNumbers[0], tNumbers[1], tNumbers[2], tNumbers[3]) : Version();
}

QString Version::toString() const
{
    return QString::number(mMajor) % u'.' % QString::number(mMinor) % u'.' % QString::number(mPatch) % u'.' %
           QString::number(mBuild);
}

QString Version::toTarnAppFormat() const
{
    return mBuild != 0
               ? toString()
               : QString::number(mMajor) % u'.' % QString::number(mMinor) % u'.' % QString::number(mPatch);
}

} // namespace tarn::vkcore
