#pragma once

#include "TestArchive.h"
#include "TestMachine.h"

#include "packages/InstallLock.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QFile>

inline QString str(const char* pText)
{
    return QString::fromUtf8(pText);
}
inline std::string text(const QStringList& pLines)
{
    return pLines.join(QLatin1Char('\n')).toStdString();
}

// A repository with an application, a library that it requires, and data; and a machine that knows it.
class UpdateFixture : public testing::Test
{
protected:
    UpdateFixture()
    {
        QByteArray tNoise(60000, 'l'); // does not get small when packed
        quint32 tState = 1;
        for (char& tByte : tNoise) {
            tState = tState * 1664525 + 1013904223;
            tByte = static_cast<char>(tState >> 24);
        }
        using tarn::vkservice::packages::Kind;
        mPackages = {
            {str("app"), str("1.0"), {{str("bin/app"), "one"}, {str("doc/a.txt"), "a"}}, {str("lib")}},
            {str("lib"), str("1.0"), {{str("lib.so"), tNoise}}},
            {str("maps"), str("3.1"), {{str("maps.dat"), "data"}}, {}, str("en"), Kind::Data},
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
    QMap<QString, QString> mTargets; // name -> file of its archive in the repository
    TestMachine mMachine{mRepository.root()};
};
