#pragma once

#include "network/MetadataSource.h"
#include "Program.h"
#include "Test.h"

#include "os/FileSystem.h"
#include "tuf/Updater.h"

#include <filesystem>

// A folder "f" to pack, a repository "r" made by the built vkpublish, and a client of it.
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

    // Words beginning with '@' are paths in the test's folder.
    Program::Result run(const QByteArray& pWords) const
    {
        QList<QByteArray> tArguments;
        const QByteArrayList tWords = pWords.isEmpty() ? QByteArrayList() : pWords.split(' ');
        for (const QByteArray& tWord : tWords) {
            tArguments.append(tWord.startsWith('@') ? path(tWord.mid(1).constData()).toUtf8() : tWord);
        }
        Program tProgram(q(VKPUBLISH), tArguments, mEnvironment);
        return tProgram.wait();
    }

    void succeed(const QByteArray& pWords) const
    {
        const Program::Result tResult = run(pWords);
        ASSERT_EQ(tResult.mStatus, 0) << pWords << ": " << tResult.mErr;
    }

    QStringList files(const char* pFolder) const
    {
        return QDir(path(pFolder)).entryList(QDir::Files | QDir::Hidden, QDir::Name);
    }

    // Everything that is published or recorded.
    QMap<QString, QByteArray> state() const
    {
        QMap<QString, QByteArray> tState;
        for (const char* tFolder : {"r/metadata/", "r.keys/"}) {
            for (const QString& tName : files(tFolder)) {
                tState.insert(q(tFolder) + tName, readFile(path(tFolder) + tName));
            }
        }
        return tState;
    }

    // A client whose trusted state survives the call. Returns the paths of all targets, or the error.
    QString followAsClient(const char* pClient = "client", const char* pRepository = "r") const
    {
        tarn::os::FileSystem& tFileSystem = tarn::os::realFileSystem();
        if (!QFileInfo::exists(path(pClient) + q("/root.json"))) {
            (void)tarn::tuf::Updater::initialize(tFileSystem, path(pClient),
                                                 readFile(path("r/metadata/1.root.json")));
        }
        tarn::vkpublish::FolderFetcher tFetcher(tFileSystem, path(pRepository) + q("/metadata"));
        tarn::tuf::Updater tUpdater(tFileSystem, path(pClient), tFetcher, QDateTime::currentDateTimeUtc());
        QList<tarn::tuf::TargetFile> tTargets;
        tarn::Failure tFailure = tUpdater.refresh();
        if (!tFailure) {
            tFailure = tUpdater.allTargets(&tTargets);
        }
        QStringList tPaths;
        for (const tarn::tuf::TargetFile& tTarget : tTargets) {
            tPaths.append(tTarget.mPath);
        }
        return tFailure ? tFailure.mText : tPaths.join(u' ');
    }

    // Replaces an existing one.
    void copy(const char* pFrom, const char* pTo) const
    {
        QDir(path(pTo)).removeRecursively();
        std::filesystem::copy(path(pFrom).toStdString(), path(pTo).toStdString(),
                              std::filesystem::copy_options::recursive |
                                  std::filesystem::copy_options::overwrite_existing);
    }

    QTemporaryDir mDir;
    Program::Environment mEnvironment{{"LC_ALL", "C.UTF-8"}, {"TMPDIR", "/tmp"}};
};
