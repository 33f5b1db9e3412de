#pragma once

#include "internal/Failure.h"
#include "packages/Attachment.h"
#include "packages/Release.h"
#include "packages/TreeFiles.h"

#include <vkcore/EnhVersion.h>
#include <vkcore/LangString.h>

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::packages {

enum class Kind
{
    Application,
    Data,
};

// A publisher's description of a package; the "custom" object of its target.
struct PackageInfo
{
    QString mName; // [a-z0-9][a-z0-9._+-]*, at most 100 characters: it names a folder
    Kind mKind = Kind::Application;
    vkcore::EnhVersion mVersion;
    vkcore::LangString mTitle;
    QString mLanguage;               // empty: for all languages
    QStringList mRequires;           // names of packages that have to be installed with this one
    QStringList mExecutables;        // relative paths in the package that must not run while it is replaced
    QString mCheck;                  // relative path of a program that proves the package; empty: none
    vkcore::LangString mReport;      // for the install log
    qint64 mInstalledSize = 0;       // bytes
    std::optional<IndexFile> mIndex; // none: the package can only be unpacked as a whole
    QList<DeltaFile> mDeltas;        // at most 16
    QList<Attachment> mAttachments;  // in the order of their kinds, one of each at most
    Release mRelease;

    const Attachment* attachment(AttachmentKind pKind) const;
    // A restricted package is described in the member "package" of an object that has only its name beside
    // it: what does not know restrictions finds no package there, and the name belongs to its role
    // nevertheless.
    QJsonObject toJson() const;
    // Content for an object that breaks one of the rules above. Unknown members are ignored.
    static Result<PackageInfo> fromJson(const QJsonObject& pFrom);
};

// True for what mName may be.
bool isPackageName(const QString& pText);

// The name of a package's target: "NAME-VERSION[-LANGUAGE].tar.zst".
QString archiveName(const PackageInfo& pInfo);

} // namespace tarn::packages
