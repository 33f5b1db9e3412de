#include "vkc_Application.h"

#include <QtCore/QCoreApplication>

namespace tarn::vkc {

void VKCApplication::reloadTranslations()
{
    while (!mTranslators.isEmpty()) {
        QTranslator* const tTranslator = mTranslators.takeFirst();
        QCoreApplication::removeTranslator(tTranslator);
        tTranslator->deleteLater();
    }

    const QString tLang = getAppLang();
    const QString tDir = getAppEtcDir() + QStringLiteral("/locale/messages");
    // Qt searches the last one first.
    const QString tCatalogues[] = {QStringLiteral("qt_%1"), QStringLiteral("vkcommon_%1"),
                                   QStringLiteral("vkcore_%1"), QStringLiteral("vkc_%1")};
    for (const QString& tPattern : tCatalogues) {
        const QString tName = tPattern.arg(tLang);
        QTranslator* const tTranslator = new QTranslator();
        if (tTranslator->load(tName, tDir)) {
            QCoreApplication::installTranslator(tTranslator);
            mTranslators.append(tTranslator);
        } else {
            log(QStringLiteral("Failed to load translation: %1").arg(tName));
            tTranslator->deleteLater();
        }
    }
}

} // namespace tarn::vkc
