#include "vkc_Application.h"

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

void VKCApplication::reloadTranslations()
{
    while (!mTranslators.isEmpty()) {
        QTranslator* const tTranslator = mTranslators.takeFirst();
        QCoreApplication::removeTranslator(tTranslator);
        tTranslator->deleteLater();
    }

    const QString tLang = getAppLang();
    const QString tDir = getAppEtcDir() + u"/locale/messages"_s;
    // Qt searches the last one first.
    const QString tCatalogues[] = {u"qt_%1"_s, u"vkcommon_%1"_s, u"vkcore_%1"_s, u"vkc_%1"_s};
    for (const QString& tPattern : tCatalogues) {
        const QString tName = tPattern.arg(tLang);
        QTranslator* const tTranslator = new QTranslator();
        if (tTranslator->load(tName, tDir)) {
            QCoreApplication::installTranslator(tTranslator);
            mTranslators.append(tTranslator);
        } else {
            log(u"Failed to load translation: %1"_s.arg(tName));
            tTranslator->deleteLater();
        }
    }
}

} // namespace tarn::vkc
