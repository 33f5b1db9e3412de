#pragma once

#include "FastDir.h"
#include "Program.h"
#include "Test.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Updater.h"

// A place with a folder "f" to pack, where the built vkpublish makes a repository "r", and a client that
// follows it.
class PublisherTest : public testing::Test
{
protected:
    PublisherTest()
    {
        write("f/bin/run", "#!/bin/sh\n");
        write("f/data", "data\n");
    }

    QString path(const char* pBelow) const { return mDir.filePath(q(pBelow)); }

    void write(const char* pBelow, const QByteArray& pContent) const { writeFile(path(pBelow), pContent); }

    // Words beginning with '@' are paths below the place.
    Program::Result run(const char* pWords) const
    {
        QList<QByteArray> tArguments;
        const QByteArrayList tWords = *pWords == '\0' ? QByteArrayList() : QByteArray(pWords).split(' ');
        for (const QByteArray& tWord : tWords) {
            tArguments.append(tWord.startsWith('@') ? path(tWord.mid(1).constData()).toUtf8() : tWord);
        }
        Program tProgram(q(VKPUBLISH), tArguments, {{"LC_ALL", "C.UTF-8"}, {"TMPDIR", "/tmp"}});
        return tProgram.wait();
    }

    void succeed(const char* pWords) const
    {
        const Program::Result tResult = run(pWords);
        ASSERT_EQ(tResult.mStatus, 0) << pWords << ": " << tResult.mErr;
    }

    QStringList files(const char* pFolder) const
    {
        return QDir(path(pFolder)).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }

    // A client with a memory: what it trusts outlives the call. Gives the paths of all targets, or the error.
    QString followAsClient()
    {
        class FolderFetcher : public tarn::tuf::Fetcher
        {
        public:
            explicit FolderFetcher(const QString& pFolder) : mFolder(pFolder) {}
            tarn::tuf::Error fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
            {
                return tarn::tuf::readWholeFile(tarn::vkservice::os::realFileSystem(), mFolder + pPath,
                                                pMaxLength, pTo);
            }
            QString mFolder;
        };
        tarn::vkservice::os::FileSystem& tFileSystem = tarn::vkservice::os::realFileSystem();
        if (!QFileInfo::exists(path("client/root.json"))) {
            tarn::tuf::Updater::initialize(tFileSystem, path("client"),
                                           readFile(path("r/metadata/1.root.json")));
        }
        FolderFetcher tFetcher(path("r/metadata/"));
        tarn::tuf::Updater tUpdater(tFileSystem, path("client"), tFetcher, QDateTime::currentDateTimeUtc());
        QList<tarn::tuf::TargetFile> tTargets;
        tarn::tuf::Error tError = tUpdater.refresh();
        if (!tError) {
            tError = tUpdater.allTargets(&tTargets);
        }
        QStringList tPaths;
        for (const tarn::tuf::TargetFile& tTarget : tTargets) {
            tPaths.append(tTarget.mPath);
        }
        return tError ? tError.mText : tPaths.join(u' ');
    }

    QTemporaryDir mDir{fastDirTemplate()};
};
