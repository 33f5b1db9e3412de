#include <vkcore/Version.h>

#include <QtCore/QStringList>

#include <array>
#include <charconv>

namespace tarn::vkcore {

Version Version::fromString(const QString& pText, bool* pOk)
{
    const QStringList tParts = pText.split(u'.');
    std::array<int, 4> tNumbers{};
    bool tOk = tParts.size() <= 4;
    for (qsizetype i = 0; tOk && i < tParts.size(); ++i) {
        const QString& tPart = tParts[i];
        // toInt alone would accept signs and spaces.
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

// QString::number takes memory for each number, and lists of versions are long.
static QString joined(std::initializer_list<int> pNumbers)
{
    std::array<char, 48> tText{};
    char* tEnd = tText.data();
    for (const int tNumber : pNumbers) {
        tEnd = std::to_chars(tEnd, tText.data() + tText.size(), tNumber).ptr;
        *tEnd++ = '.';
    }
    return QString::fromLatin1(tText.data(), tEnd - 1 - tText.data());
}

QString Version::toString() const
{
    return joined({mMajor, mMinor, mPatch, mBuild});
}

QString Version::toTarnAppFormat() const
{
    return mBuild != 0 ? toString() : joined({mMajor, mMinor, mPatch});
}

} // namespace tarn::vkcore
