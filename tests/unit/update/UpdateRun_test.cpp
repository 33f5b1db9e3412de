#include "TestMachine.h"

#include <gtest/gtest.h>

#include <QtCore/QFileInfo>

using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using namespace tarn::vkcore;

namespace {

QString str(const char* pText)
{
    return QString::fromUtf8(pText);
}

std::string text(const QStringList& pLines)
{
    return pLines.join(QLatin1Char('\n')).toStdString();
}

// A repository with an application, a library that it requires, and data; and a machine that knows it.
class UpdateRunTest : public testing::Test
{
protected:
    UpdateRunTest()
    {
        mPackages = {
            {str("app"), str("1.0"), {{str("bin/app"), "one"}, {str("doc/a.txt"), "a"}}, {str("lib")}},
            {str("lib"), str("1.0"), {{str("lib.so"), QByteArray(300000, 'l')}}},
            {str("maps"), str("3.1"), {{str("maps.dat"), "data"}}, {}, str("en"), packages::Kind::Data},
        };
        publish();
        mMachine.setServers({mRepository.uri()});
    }

    void publish()
    {
        for (const TestPackage& tPackage : mPackages) {
            mRepository.add(tPackage);
        }
        mRepository.publish();
    }

    TestPackage& package(const char* pName)
    {
        for (TestPackage& tPackage : mPackages) {
            if (tPackage.mName == QLatin1String(pName)) {
                return tPackage;
            }
        }
        return mPackages.first();
    }

    void expectInstalled()
    {
        EXPECT_EQ(mMachine.currentFiles(), filesOf(mPackages));
        EXPECT_EQ(text(mMachine.litter()), "");
    }

    QList<TestPackage> mPackages;
    TestRepository mRepository;
    TestMachine mMachine{mRepository.root()};
};

} // namespace

TEST_F(UpdateRunTest, InstallsEverythingAndThenNothing)
{
    const RunResult tResult = mMachine.run();
    EXPECT_EQ(tResult.mCode, ResultSuccess) << tResult.mText.toStdString();
    EXPECT_EQ(tResult.mInstalledCount, 3);
    expectInstalled();
    EXPECT_TRUE(QFileInfo(mMachine.installed(str("app/bin/app"))).isExecutable());
    EXPECT_FALSE(QFileInfo(mMachine.installed(str("app/doc/a.txt"))).isExecutable());
    EXPECT_EQ(text(mMachine.log()), "app 1.0.0 ok\nlib 1.0.0 ok\nmaps 3.1.0 ok");
    EXPECT_EQ(text(mMachine.log(true)), "app 1.0.0 ok\nmaps 3.1.0 ok");
    const QList<ServiceActivity> tActivities{ActivityDownloading, ActivityVerifying, ActivityPreparing,
                                             ActivityInstalling, ActivityRemovingObsolete};
    EXPECT_EQ(mMachine.mActivities, tActivities);

    const RunResult tAgain = mMachine.run();
    EXPECT_EQ(tAgain.mCode, ResultSuccess);
    EXPECT_EQ(tAgain.mInstalledCount, 0);
    EXPECT_EQ(mMachine.generation(), 1);
    EXPECT_EQ(mMachine.log().size(), 3);
}
