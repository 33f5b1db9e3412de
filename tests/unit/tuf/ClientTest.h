#pragma once

#include "Test.h"
#include "TestRepository.h"

#include "os/FileSystem.h"

// A client of the repository that starts from its first root, with its trusted metadata in a private folder.
class ClientTest : public testing::Test
{
protected:
    using Failure = tarn::Failure;

    ClientTest() { initialize(); }

    void initialize()
    {
        const Failure tFailure = tarn::tuf::Updater::initialize(tarn::os::realFileSystem(), mDir,
                                                                mRepository.mFiles[q("1.root.json")]);
        ASSERT_FALSE(tFailure) << tFailure.mText;
    }

    // A run of the client from its stored metadata; afterwards mRequests has only those of this run.
    Failure refresh()
    {
        mRepository.mRequests.clear();
        mUpdater.emplace(tarn::os::realFileSystem(), mDir, mRepository, mNow, mLimits);
        return mUpdater->refresh();
    }

    // The requests of the last refresh or search.
    std::string requests() const { return mRepository.mRequests.join(q(", ")).toStdString(); }

    // The role that offers the target; empty: not offered.
    Failure find(const QString& pPath, QString* pRole)
    {
        mRepository.mRequests.clear();
        std::optional<tarn::tuf::TargetFile> tTarget;
        const Failure tFailure = mUpdater->findTarget(pPath, &tTarget);
        *pRole = tTarget ? tTarget->mCustom[q("by")].toString() : QString();
        return tFailure;
    }

    // "root 1, snapshot 1, ...": everything stored, by name.
    std::string stored() const
    {
        QStringList tRoles;
        for (const QString& tName :
             QDir(mDir).entryList({q("*.json")}, QDir::Files | QDir::Hidden, QDir::Name)) {
            const QJsonObject tSigned = QJsonDocument::fromJson(read(tName)).object()[q("signed")].toObject();
            tRoles.append(
                q("%1 %2").arg(QString(tName).remove(q(".json"))).arg(tSigned[q("version")].toInt()));
        }
        return tRoles.join(q(", ")).toStdString();
    }

    QByteArray read(const QString& pName) const { return readFile(mDir + u'/' + pName); }

    void write(const QString& pName, const QByteArray& pContent) const
    {
        writeFile(mDir + u'/' + pName, pContent);
    }

    QTemporaryDir mTemporary;
    QString mDir = mTemporary.filePath(q("trusted"));
    TestRepository mRepository;
    QDateTime mNow = TestRepository::now();
    tarn::tuf::Limits mLimits;
    std::optional<tarn::tuf::Updater> mUpdater;
};

#define EXPECT_GOOD(pError)                                                                                  \
    do {                                                                                                     \
        const tarn::Failure tResult = (pError);                                                              \
        EXPECT_FALSE(tResult) << tResult.mText;                                                              \
    } while (false)
