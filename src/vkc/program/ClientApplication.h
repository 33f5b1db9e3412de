#pragma once

#include "program/ServiceLink.h"

#include <vkcore/OkiApplication.h>

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>
#include <QtCore/QTranslator>

namespace tarn::vkc {

// The common base of the service's command-line clients.
class ClientApplication : public vkcore::OkiApplication
{
    Q_OBJECT

public:
    // Of configuration files and logs.
    ClientApplication(const QList<QString>& pPrefixes, int pLogLevels);
    ~ClientApplication() override;

    void initUserDirs() override;
    void initLogFile() override;
    bool loadUserConfig() override;
    bool saveUserConfig() override;

    // pParts: the catalogues beside those of the libraries, without their language.
    void reloadTranslations(const QStringList& pParts);

protected:
    ServiceLink mLink;

private:
    void removeTranslations();

    QString mUserConfigFile;
    QList<QTranslator*> mTranslators; // owned
};

} // namespace tarn::vkc
