#include "Test.h"
#include "TestApplication.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QTextStream>

namespace {

// What an application finds depends on where its program lies and on the environment, so a test starts
// this program anew for it.
int showApplication()
{
    const tarn::vkcore::GRef<TestApplication> tApp(new TestApplication);
    QTextStream tOut(stdout);
    const bool tOk = tApp->init();
    tOut << int{tOk} << '\n'
         << tApp->getConfigDir() << '\n'
         << tApp->getAppEtcDir() << '\n'
         << tApp->getConfig()->getStrValue(q("application.settingsDir.other")) << '\n'
         << tApp->getConfigPrefix() << '\n'
         << tApp->getAppLang() << '\n'
         << tApp->getConfig()->getStrValue(q("a")) << '\n'
         << tApp->mFatalErrors.join(u'\n');
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    if (QCoreApplication::arguments().value(1) == q("--show-application")) {
        return showApplication();
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
