#include "CtlApplication.h"

#include "internal/StandardOutput.h"

#include <vkcore/GRef.h>

#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

using namespace Qt::StringLiterals;

int main(int argc, char** argv)
{
    tarn::vkcore::holdStandardDescriptors();
    QCoreApplication tQtApp(argc, argv);
    const tarn::vkcore::GRef<tarn::vkctl::CtlApplication> tApp(new tarn::vkctl::CtlApplication());
    tApp->init();
    tApp->reloadTranslations({u"vkc"_s, u"vkctl"_s});
    QTimer::singleShot(0, tApp.get(), &tarn::vkctl::CtlApplication::run);
    return QCoreApplication::exec();
}
