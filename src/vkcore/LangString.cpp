#include <vkcore/LangString.h>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

LangString::LangString(const QMap<QString, QString>& pValues) : mValues(pValues) {}

void LangString::setValue(const QString& pLang, const QString& pText)
{
    mValues.insert(pLang, pText);
}

const QString& LangString::bestValue(const QString& pLang) const
{
    static const QString sNothing;
    if (mValues.isEmpty()) {
        return sNothing;
    }
    const auto tText = [this](const QString& pKey) -> const QString& {
        const auto tFound = mValues.constFind(pKey);
        return tFound == mValues.cend() ? sNothing : *tFound;
    };
    if (const QString& tExact = tText(pLang); !tExact.isEmpty()) {
        return tExact;
    }
    if (const QString& tOfLanguage = tText(pLang.section(u'_', 0, 0)); !tOfLanguage.isEmpty()) {
        return tOfLanguage;
    }
    if (const QString& tEnglish = tText(u"en"_s); !tEnglish.isEmpty()) {
        return tEnglish;
    }
    const auto tAny =
        std::find_if(mValues.cbegin(), mValues.cend(), [](const QString& pText) { return !pText.isEmpty(); });
    return tAny == mValues.cend() ? sNothing : *tAny;
}

} // namespace tarn::vkcore
