#include "vkc_Application.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QTimer>

using namespace Qt::StringLiterals;

using tarn::vkc::VKCApplication;

static const QList<QString> sConfigPrefixes{u"vk"_s, u"vkp"_s};

static QString currentTime()
{
    return VKCApplication::dateTimeText(QDateTime::currentDateTime());
}

int main(int argc, char** argv)
{
    QCoreApplication tQtApp(argc, argv);
    const tarn::vkcore::GRef<VKCApplication> tApp(new VKCApplication(sConfigPrefixes, 2));

    tApp->init();
    tApp->log(u"Application startup %1"_s.arg(currentTime()));
    tApp->log(u"%1 %2"_s.arg(tApp->getAppName(), tApp->getAppVersion().toString()));
    tApp->log(u"Operating system: %1"_s.arg(tApp->getUtil()->prettyOsVersion()));
    tApp->reloadTranslations({u"vkc"_s});

    QTimer::singleShot(0, tApp.get(), &VKCApplication::run);
    const int tStatus = QCoreApplication::exec();
    tApp->log(u"\nApplication shutdown %1"_s.arg(currentTime()));
    return tStatus;
}
