#pragma once

#include "keys/KeyFolder.h"
#include "Moments.h"
#include "network/MetadataSource.h"
#include "Program.h"
#include "Test.h"

#include "os/FileSystem.h"
#include "tuf/Updater.h"

#include <filesystem>
#include <functional>

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

    // Changes the text of every package in the lists of the record.
    void changePackages(const std::function<QByteArray(const QByteArray& pText)>& pChange) const
    {
        tarn::vkpublish::KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        ASSERT_FALSE(tKeys.open());
        tarn::vkpublish::Record& tRecord = tKeys.mRecord;
        for (auto* tList : {&tRecord.mTargets, &tRecord.mPublishedTargets, &tRecord.mWithdrawnTargets}) {
            const QMap<QByteArray, QByteArray> tTexts = tList->texts();
            for (auto tIt = tTexts.begin(); tIt != tTexts.end(); ++tIt) {
                tList->insertText(tIt.key(), pChange(*tIt));
            }
        }
        ASSERT_FALSE(tKeys.save());
    }

    // Writes the record as version 1.1.0 did, with its packages.
    void makeOldRecord() const
    {
        tarn::vkpublish::KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        ASSERT_FALSE(tKeys.openForReading());
        const auto tAll = [](const tarn::vkpublish::TargetList& pList) {
            return QJsonDocument::fromJson(pList.canonical()).object();
        };
        QJsonObject tOld = QJsonDocument::fromJson(tKeys.mRecord.toJson()).object();
        tOld.remove(q("packages"));
        tOld.insert(q("format"), 1);
        QJsonObject tRoles; // it named a key file for each role
        for (const tarn::vkpublish::KeySource& tKey : tKeys.mRecord.mKeys) {
            tRoles.insert(tKey.mFile.section(u'-', 0, 0), tKey.mFile);
        }
        tOld.insert(q("keys"), tRoles);
        tOld.insert(q("targets"), tAll(tKeys.mRecord.mTargets));
        tOld.insert(q("publishedTargets"), tAll(tKeys.mRecord.mPublishedTargets));
        tOld.insert(q("withdrawnTargets"), tAll(tKeys.mRecord.mWithdrawnTargets));
        write("r.keys/record.json", QJsonDocument(tOld).toJson());
        QDir(path("r.keys/packages")).removeRecursively();
    }

    QTemporaryDir mDir;
    Program::Environment mEnvironment{{"LC_ALL", "C.UTF-8"}, {"TMPDIR", "/tmp"}};
};
