#include <vkcore/Application.h>

#include <QtCore/QLocale>
#include <QtCore/QStringList>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

QList<QString> codesOf(const Config& pConfig, const QString& pKey)
{
    static const QString sBuiltIn = u"de,en,es,fr,it,ja,nl,pl,pt_BR,ru,sv,tr,zh_CN"_s;
    QList<QString> tCodes;
    const QStringList tWords = pConfig.getStrValue(pKey, sBuiltIn).split(u',', Qt::SkipEmptyParts);
    for (const QString& tWord : tWords) {
        const QString tCode = tWord.trimmed();
        if (!tCode.isEmpty() && !tCodes.contains(tCode)) {
            tCodes.append(tCode);
        }
    }
    return tCodes;
}

// QLocale sees a country in every language, and names some languages after it ("American English"). In
// another country the same language has its plain name.
QString plainName(const QLocale& pLocale)
{
    QString tPlain = pLocale.nativeLanguageName();
    const QList<QLocale> tAll =
        QLocale::matchingLocales(pLocale.language(), pLocale.script(), QLocale::AnyTerritory);
    for (const QLocale& tOther : tAll) {
        const QString tName = tOther.nativeLanguageName();
        if (!tName.isEmpty() && tPlain.contains(tName)) {
            tPlain = tName;
        }
    }
    return tPlain;
}

} // namespace

QString Application::getLangName(const QString& pCode) const
{
    const QLocale tLocale(pCode);
    if (tLocale.language() == QLocale::C) {
        return pCode;
    }
    const bool tWithCountry = pCode.contains(u'_') || pCode.contains(u'-');
    const QString tName = tWithCountry ? tLocale.nativeLanguageName() : plainName(tLocale);
    return tName.isEmpty() ? pCode : tName;
}

QList<QString> Application::getAvailableAppLanguages() const
{
    return codesOf(*mConfig, u"application.languages"_s);
}

QList<QString> Application::getAvailableDataLanguages() const
{
    return codesOf(*mConfig, u"data.languages"_s);
}

void Application::chooseLanguage()
{
    mAppLang = mConfig->getStrValue(u"application.language"_s);
    if (!mAppLang.isEmpty()) {
        return;
    }
    const QString tName = QLocale::system().name();
    if (tName == "C"_L1) {
        mAppLang = u"en"_s;
    } else {
        mAppLang = getAvailableAppLanguages().contains(tName) ? tName : tName.section(u'_', 0, 0);
    }
}

} // namespace tarn::vkcore
