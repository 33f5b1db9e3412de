#pragma once

#include "Files.h"
#include "packages/PackageInfo.h"
#include "TestArchive.h"
#include "TestRepository.h"
#include "trees/IndexEntry.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>

#include <functional>
#include <vector>

using FileMap = QMap<QString, QByteArray>;

// A package of a test; its version is a text such as "1.2".
struct TestPackage
{
    QString mName;
    QString mVersion = q("1.0");
    FileMap mFiles = {{q("readme.txt"), QByteArray("read me")}}; // those below bin/ are executable
    QStringList mRequires = {};
    QString mLanguage = {};
    tarn::packages::Kind mKind = tarn::packages::Kind::Application;
    QStringList mExecutables = {};
    QString mCheck = {};
};

tarn::packages::PackageInfo infoOf(const TestPackage& pPackage);

// A repository of packages in a private folder.
class PackageRepository : public TestRepository
{
public:
    PackageRepository();

    QString path(const QString& pBelow = QString()) const { return mDir.filePath(pBelow); }
    QString uri() const { return QUrl::fromLocalFile(mDir.path()).toString(); }
    QByteArray root() const { return mFiles[q("1.root.json")]; }
    // Of later metadata files; initially ten days from now.
    void setExpiry(const QDateTime& pExpires);

    // Offered from the next publish() on; replaces one with the same target path. Returns the path of its
    // file.
    QString add(const TestPackage& pPackage);
    // The same with an archive made by the test.
    QString add(const tarn::packages::PackageInfo& pInfo, const QByteArray& pArchive);
    // Replaces the signed description, valid or not, of a target of add().
    void set(const QString& pFile, const char* pMember, const QJsonValue& pValue);
    void remove(const QString& pName);
    // What packages get beside their archives from now on. Frames have some kB.
    enum class Beside
    {
        Nothing,
        Index,
        IndexAndDelta, // from the version that was added before
    };
    void setBeside(Beside pBeside) { mBeside = pBeside; }
    // What was added last under a name, with an index.
    tarn::packages::PackageInfo added(const QString& pName) const { return mBefore.value(pName).first; }
    // Called with the entries of the next indexes, to change them.
    std::function<void(std::vector<tarn::trees::IndexEntry>*)> mOnIndex;
    // All roles but the root, into the folder.
    void publish();

private:
    QByteArray addIndex(const QList<TestEntry>& pEntries, tarn::packages::PackageInfo* pInfo);
    void addDelta(const QString& pArchive, tarn::packages::PackageInfo* pInfo);

    QTemporaryDir mDir;
    Beside mBeside = Beside::Nothing;
    QMap<QString, std::pair<tarn::packages::PackageInfo, QString>> mBefore; // with its archive
};
