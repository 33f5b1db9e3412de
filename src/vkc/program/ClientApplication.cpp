#include "program/ClientApplication.h"

#include <QtCore/QCoreApplication>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

ClientApplication::ClientApplication(const QList<QString>& pPrefixes, int pLogLevels)
    : OkiApplication(pPrefixes, pLogLevels), mLink(*this)
{
    setLogDirName(u"vkc_log"_s);
}

ClientApplication::~ClientApplication()
{
    removeTranslations();
}

void ClientApplication::removeTranslations()
{
    while (!mTranslators.isEmpty()) {
        QTranslator* const tTranslator = mTranslators.takeFirst();
        if (QCoreApplication::instance() != nullptr) {
            QCoreApplication::removeTranslator(tTranslator);
        }
        tTranslator->deleteLater();
    }
}

void ClientApplication::reloadTranslations(const QStringList& pParts)
{
    removeTranslations();
    const QString tLang = getAppLang();
    const QString tDir = getAppEtcDir() + u"/locale/messages"_s;
    // Qt searches the last one first.
    const QStringList tCatalogues = QStringList{u"qt"_s, u"vkcommon"_s, u"vkcore"_s} + pParts;
    for (const QString& tCatalogue : tCatalogues) {
        const QString tName = tCatalogue + u'_' + tLang;
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
