#pragma once

#include "Moments.h"
#include "Test.h"
#include "TestArchive.h"
#include "TestMachine.h"

#include "packages/Roots.h"

inline std::string text(const QStringList& pLines)
{
    return pLines.join(u'\n').toStdString();
}

// Incompressible bytes.
inline QByteArray noise(qsizetype pSize, quint32 pSeed)
{
    QByteArray tNoise(pSize, '\0');
    quint32 tState = pSeed;
    for (char& tByte : tNoise) {
        tState = tState * 1664525 + 1013904223;
        tByte = static_cast<char>(tState >> 24);
    }
    return tNoise;
}

// A repository with an application, a library that it requires, and data; and a machine that uses it.
class UpdateFixture : public testing::Test
{
protected:
    UpdateFixture()
    {
        using tarn::packages::Kind;
        mPackages = {
            {q("app"), q("1.0"), {{q("bin/app"), "one"}, {q("doc/a.txt"), "a"}}, {q("lib")}},
            {q("lib"), q("1.0"), {{q("lib.so"), noise(60000, 1)}}},
            {q("maps"), q("3.1"), {{q("maps.dat"), "data"}}, {}, q("en"), Kind::Data},
        };
        publish();
        mMachine.setServers({mRepository.uri()});
    }

    void publish()
    {
        for (const TestPackage& tPackage : mPackages) {
            mTargets.insert(tPackage.mName, mRepository.add(tPackage));
        }
        mRepository.publish();
    }

    TestPackage& package(const char* pName)
    {
        for (TestPackage& tPackage : mPackages) {
            if (tPackage.mName == q(pName)) {
                return tPackage;
            }
        }
        return mPackages.first();
    }

    // Runs an update and checks its result; failures name the line of the test.
    tarn::vkservice::update::RunResult run(tarn::vkservice::ResultCode pExpected,
                                           int pLine = __builtin_LINE())
    {
        const tarn::vkservice::update::RunResult tResult = mMachine.run();
        EXPECT_EQ(tResult.mCode, pExpected) << tResult.mText << ", in line " << pLine;
        return tResult;
    }

    void expectInstalled()
    {
        EXPECT_EQ(mMachine.currentFiles(), filesOf(mPackages));
        EXPECT_EQ(text(mMachine.litter()), "");
    }

    QList<TestPackage> mPackages;
    PackageRepository mRepository;
    QMap<QString, QString> mTargets; // name -> file of its archive in the repository
    TestMachine mMachine{mRepository.root()};
};
