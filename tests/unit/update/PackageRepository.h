#pragma once

#include "Files.h"
#include "packages/PackageInfo.h"
#include "TestRepository.h"

#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>

using FileMap = QMap<QString, QByteArray>;

// What a test says about a package; "1.2" and the like for its version.
struct TestPackage
{
    QString mName;
    QString mVersion = q("1.0");
    FileMap mFiles = {{q("readme.txt"), QByteArray("read me")}}; // those below bin/ are executable
    QStringList mRequires = {};
    QString mLanguage = {};
    tarn::packages::Kind mKind = tarn::packages::Kind::Application;
    QStringList mExecutables = {};
};

tarn::packages::PackageInfo infoOf(const TestPackage& pPackage);

// A repository of packages in a folder of its own.
class PackageRepository : public TestRepository
{
public:
    PackageRepository();

    QString path(const QString& pBelow = QString()) const { return mDir.filePath(pBelow); }
    QString uri() const { return QUrl::fromLocalFile(mDir.path()).toString(); }
    QByteArray root() const { return mFiles[q("1.root.json")]; }
    // Of later metadata files; ten days from now to begin with.
    void setExpiry(const QDateTime& pExpires);

    // Offered from the next publish() on, in place of one with the same target path. The path of its file.
    QString add(const TestPackage& pPackage);
    // The same with an archive of the test's own making.
    QString add(const tarn::packages::PackageInfo& pInfo, const QByteArray& pArchive);
    // What is signed, sense or none, of the target that add() gave this path.
    void set(const QString& pFile, const char* pMember, const QJsonValue& pValue);
    void remove(const QString& pName);
    // All roles but the root, into the folder.
    void publish();

private:
    QTemporaryDir mDir;
};
