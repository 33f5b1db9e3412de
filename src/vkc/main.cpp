#include "vkc_Application.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QTimer>

using tarn::vkc::VKCApplication;

static const QList<QString> sConfigPrefixes{QStringLiteral("vk"), QStringLiteral("vkp")};

static QString currentTime()
{
    return VKCApplication::dateTimeText(QDateTime::currentDateTime());
}

int main(int argc, char** argv)
{
    QCoreApplication tQtApp(argc, argv);
    const tarn::vkcore::GRef<VKCApplication> tApp(new VKCApplication(sConfigPrefixes, 2));

    tApp->init();
    tApp->log(QStringLiteral("Application startup %1").arg(currentTime()));
    tApp->log(QStringLiteral("%1 %2").arg(tApp->getAppName(), tApp->getAppVersion().toString()));
    tApp->log(QStringLiteral("Operating system: %1").arg(tApp->getUtil()->prettyOsVersion()));
    tApp->reloadTranslations();

    QTimer::singleShot(0, tApp.get(), &VKCApplication::run);
    const int tStatus = QCoreApplication::exec();
    tApp->log(QStringLiteral("\nApplication shutdown %1").arg(currentTime()));
    return tStatus;
}
