#include <vkcore/LangString.h>

namespace tarn::vkcore {

LangString::LangString(const QMap<QString, QString>& pValues) : mValues(pValues) {}

void LangString::setValue(const QString& pLang, const QString& pText)
{
    mValues.insert(pLang, pText);
}

const QString& LangString::bestValue(const QString& pLang) const
{
    static const QString sNothing;
    const QString tBaseLang = pLang.section(QLatin1Char('_'), 0, 0);
    for (const QString& tLang : {pLang, tBaseLang, QStringLiteral("en")}) {
        const auto tFound = mValues.constFind(tLang);
        if (tFound != mValues.cend() && !tFound->isEmpty()) {
            return *tFound;
        }
    }
    for (const QString& tText : mValues) {
        if (!tText.isEmpty()) {
            return tText;
        }
    }
    return sNothing;
}

} // namespace tarn::vkcore
