// Which folders a run may use, and how it treats their contents.

#include "UpdateFixture.h"

#include <algorithm>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;

using FoldersTest = UpdateFixture;

// The generation before it counts, and a new one is made even if no server has anything new.
TEST_F(FoldersTest, GoesBackOverADamagedManifest)
{
    const QString tManifest = mMachine.installed(packages::manifestFileName());
    run(ResultSuccess);
    for (const char* tVersion : {"2.0", "3.0"}) { // the latter is withdrawn
        mRepository.remove(q("lib"));
        package("lib").mVersion = q(tVersion);
        publish();
        run(ResultSuccess);
        const qint64 tDamaged = mMachine.generation();
        if (q(tVersion) == q("3.0")) {
            mRepository.remove(q("lib"));
            mRepository.publish();
        }
        writeFile(tManifest, "damaged");
        EXPECT_FALSE(mMachine.restart());
        run(ResultSuccess);
        EXPECT_TRUE(mMachine.mMessages.value(0).contains(q("counts as installed")))
            << text(mMachine.mMessages);
        EXPECT_EQ(mMachine.generation(), tDamaged + 1);
        EXPECT_EQ(mMachine.packages().value(1), q("lib 2.0.0"));
        EXPECT_EQ(text(mMachine.litter()), "");
    }
    const FileMap tFiles = mMachine.currentFiles();
    const QDir tGenerations(mMachine.path(q("install/generations")));
    const QStringList tNames = tGenerations.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tName : tNames) {
        writeFile(tGenerations.filePath(tName + u'/' + packages::manifestFileName()), "damaged");
    }
    EXPECT_FALSE(mMachine.restart());
    const RunResult tResult = run(ResultStoreDamaged);
    EXPECT_TRUE(tResult.mText.contains(q("remove the link ") + mMachine.path(q("install/current"))));
    EXPECT_EQ(mMachine.currentFiles(), tFiles);
    QFile::remove(mMachine.path(q("install/current")));
    publish();
    run(ResultSuccess);
    expectInstalled();
}

// A data folder of another installation is refused unchanged, at the run and at the start.
TEST_F(FoldersTest, RefusesADataFolderThatIsNotItsOwn)
{
    const QString tData = mMachine.path(q("data"));
    mMachine.request().mDataDir = tData;
    const auto tRefused = [&](TestMachine& pMachine, const QString& pWhy) {
        const FileMap tBefore = readTree(tData);
        QString tError;
        EXPECT_FALSE(pMachine.restart(&tError));
        const RunResult tResult = pMachine.run();
        EXPECT_EQ(tResult.mCode, ResultManualIntervention);
        for (const QString& tText : {tError, tResult.mText}) {
            EXPECT_TRUE(tText.contains(pWhy) && tText.contains(tData)) << tText.toStdString();
        }
        EXPECT_EQ(readTree(tData), tBefore);
    };
    writeFile(tData + q("/packages/theirs/1/file"), "foreign");
    writeFile(tData + q("/.staging/file"), "foreign");
    tRefused(mMachine, q("is not empty"));
    QDir(tData).removeRecursively();
    run(ResultSuccess);

    TestMachine tOther(mRepository.root());
    tOther.setServers({mRepository.uri()});
    tOther.request().mDataDir = tData;
    tRefused(tOther, q("another installation"));

    // Its disk is unmounted and mounted again.
    QDir().rename(tData, tData + q(".away"));
    tRefused(mMachine, q("not mounted"));
    QDir().mkpath(tData);
    tRefused(mMachine, q("not mounted"));
    EXPECT_TRUE(QDir(tData).isEmpty());
    QDir().rmdir(tData);
    QDir().rename(tData + q(".away"), tData);
    run(ResultSuccess);
    expectInstalled();

    // It is lost, and an administrator confirms it.
    QDir(tData).removeRecursively();
    writeFile(tData + q("/.vk-root"), "");
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 1);
    expectInstalled();
}

// After a version without markers, and after the loss of the state folder.
TEST_F(FoldersTest, TakesOverWhatItsManifestsVouchFor)
{
    const QString tData = mMachine.path(q("data"));
    const QStringList tMarkers{tData + q("/.vk-root"), mMachine.path(q("install/.vk-root"))};
    const auto tForgetMarkers = [&] {
        QDir(mMachine.request().mStateDir).removeRecursively();
        std::for_each(tMarkers.begin(), tMarkers.end(),
                      [](const QString& pMarker) { QFile::remove(pMarker); });
    };
    mMachine.request().mDataDir = tData;
    run(ResultSuccess);
    tForgetMarkers();
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 0);
    EXPECT_EQ(mMachine.generation(), 1);

    tForgetMarkers();
    QDir().rename(tData, tData + q(".away"));
    EXPECT_TRUE(run(ResultManualIntervention).mText.contains(q("not mounted")));
    QDir().rename(tData + q(".away"), tData);
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 0);

    // An earlier data folder is taken over, too, and emptied when its packages are not needed, at the latest
    // when its disk is mounted again.
    tForgetMarkers();
    mMachine.request().mDataDir = mMachine.path(q("data2"));
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 1);
    QDir().rename(tData, tData + q(".away"));
    for (const char* tVersion : {"4.0", "5.0"}) {
        package("maps").mVersion = q(tVersion);
        publish();
        run(ResultSuccess);
        QDir().rename(tData + q(".away"), tData);
    }
    EXPECT_FALSE(QFileInfo::exists(tData + q("/packages/maps")));
    EXPECT_EQ(text(mMachine.litter()), "");

    QDir(mMachine.request().mStateDir).removeRecursively();
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 0);
    EXPECT_TRUE(mMachine.restart());
}
