#include "commands/Commands.h"

#include "CommandLine.h"
#include "evidence/Attachments.h"
#include "evidence/SecurityFix.h"
#include "keys/KeyFolder.h"
#include "keys/SigningTime.h"
#include "packing/Packer.h"
#include "packing/TarStream.h"
#include "publication/Layout.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "packages/PackageInfo.h"
#include "trees/IndexWriter.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

#include <algorithm>
#include <cerrno>
#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::Kind;
using packages::PackageInfo;

namespace {

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addNoWait();
    pLine->addArgument(u"FOLDER"_s, u"What to pack"_s);
    pLine->addOption(u"name"_s, u"Name of the package: a-z 0-9 . _ + -"_s, u"NAME"_s);
    pLine->addOption(u"version"_s, u"One to four numbers with dots"_s, u"VERSION"_s);
    pLine->addOption(u"date"_s, u"Date of the version; by default now"_s, u"DATE"_s);
    pLine->addOption(u"kind"_s, u"application or data"_s, u"KIND"_s, u"application"_s);
    pLine->addOption(u"title"_s, u"Title in one language, as in de=Karten; may be repeated"_s,
                     u"LANG=TEXT"_s);
    pLine->addOption(u"language"_s, u"Language of the package; by default for all"_s, u"LANG"_s);
    pLine->addOption(u"requires"_s, u"A package that must be installed, too; may be repeated"_s, u"NAME"_s);
    pLine->addOption(u"executable"_s,
                     u"A program in FOLDER that must not run while it is replaced; may be repeated"_s,
                     u"PATH"_s);
    pLine->addOption(
        u"check"_s, u"A program in FOLDER whose exit status says on each machine whether the package works"_s,
        u"PATH"_s);
    pLine->addOption(u"report"_s, u"What is new, for the install log, in one language; may be repeated"_s,
                     u"LANG=TEXT"_s);
    pLine->addOption(u"attach"_s,
                     u"A signed file beside the package, of the kind advisory, provenance or sbom; may be "
                     "repeated. Machines show the text of the advisory"_s,
                     u"KIND=FILE"_s);
    pLine->addOption(u"security"_s, u"Fixes a security flaw of all lower versions"_s);
    pLine->addOption(u"security-since"_s, u"The same, but the fix has been there since this version"_s,
                     u"VERSION"_s);
    pLine->addOption(u"level"_s, u"Compression level, 1 to 19"_s, u"LEVEL"_s, u"19"_s);
    pLine->addOption(u"channel"_s, u"Only for machines with this channel; by default for all"_s, u"NAME"_s);
    pLine->addOption(u"critical"_s, u"Machines install it without waiting for a phase"_s);
    pLine->addOption(u"replace"_s, u"Replace the same version"_s);
}

bool readTexts(const CommandLine& pLine, const char* pOption, vkcore::LangString* pTo)
{
    for (const QString& tValue : pLine.values(pOption)) {
        const qsizetype tEquals = tValue.indexOf(u'=');
        if (tEquals <= 0) {
            complain(u"--%1 takes LANG=TEXT, not \"%2\""_s.arg(QLatin1String(pOption), tValue));
            return false;
        }
        pTo->setValue(tValue.left(tEquals), tValue.mid(tEquals + 1));
    }
    return true;
}

// False, after an error message, if the option is invalid.
bool readSecurity(const CommandLine& pLine, const vkcore::Version& pVersion, packages::Release* pTo)
{
    bool tOk = true;
    if (pLine.isSet("security-since")) {
        pTo->mSecuritySince = vkcore::Version::fromString(pLine.value("security-since"), &tOk);
        tOk = tOk && *pTo->mSecuritySince <= pVersion;
    } else if (pLine.isSet("security")) {
        pTo->mSecuritySince = pVersion;
    }
    if (!tOk) {
        complain(u"--security-since takes a version that is not higher than --version, not \"%1\""_s.arg(
            pLine.value("security-since")));
    }
    return tOk;
}

// Builds a package's description from the options; false, after an error message, if they are invalid.
bool readInfo(const CommandLine& pLine, PackageInfo* pTo)
{
    bool tOk = false;
    const vkcore::Version tVersion = vkcore::Version::fromString(pLine.value("version"), &tOk);
    if (!tOk) {
        complain(u"--version takes one to four numbers with dots, not \"%1\""_s.arg(pLine.value("version")));
        return false;
    }
    QDateTime tDate = signingTime();
    if (pLine.isSet("date")) {
        const std::optional<QDateTime> tGiven = pLine.date("date");
        if (!tGiven) {
            return false;
        }
        tDate = *tGiven;
    }
    const QString tKind = pLine.value("kind");
    if (tKind != "application"_L1 && tKind != "data"_L1) {
        complain(u"--kind takes application or data, not \"%1\""_s.arg(tKind));
        return false;
    }
    PackageInfo tInfo;
    tInfo.mName = pLine.value("name");
    tInfo.mKind = tKind == "data"_L1 ? Kind::Data : Kind::Application;
    tInfo.mVersion = vkcore::EnhVersion(tVersion, tDate);
    tInfo.mLanguage = pLine.value("language");
    tInfo.mRequires = pLine.values("requires");
    tInfo.mRelease.mChannel = pLine.value("channel") == "stable"_L1 ? QString() : pLine.value("channel");
    tInfo.mRelease.mIsCritical = pLine.isSet("critical");
    tInfo.mExecutables = pLine.values("executable");
    tInfo.mCheck = pLine.value("check");
    if (pLine.isSet("check") && tInfo.mCheck.isEmpty()) {
        complain(u"--check takes the path of a program in the folder"_s);
        return false;
    }
    if (!readSecurity(pLine, tVersion, &tInfo.mRelease) || !readTexts(pLine, "title", &tInfo.mTitle) ||
        !readTexts(pLine, "report", &tInfo.mReport)) {
        return false;
    }
    // Refuses here what a client would refuse.
    const Result<PackageInfo> tRead = PackageInfo::fromJson(tInfo.toJson());
    if (!tRead) {
        complain(u"Invalid package options: %1"_s.arg(tRead.failure().mText));
        return false;
    }
    *pTo = *tRead;
    return true;
}

Failure checkExecutables(const PackageInfo& pInfo, const std::vector<FolderEntry>& pEntries)
{
    for (const QString& tPath : pInfo.mExecutables) {
        const bool tFound = std::any_of(pEntries.begin(), pEntries.end(), [&](const FolderEntry& pEntry) {
            return S_ISREG(pEntry.mStat.st_mode) && pEntry.mPath == tPath.toUtf8();
        });
        if (!tFound) {
            return Failure::content(
                u"The file %1, which --executable names, is not in the folder"_s.arg(tPath));
        }
    }
    return {};
}

// Machines run the file as it is.
Failure checkCheck(const PackageInfo& pInfo, const std::vector<FolderEntry>& pEntries)
{
    const bool tFound = std::any_of(pEntries.begin(), pEntries.end(), [&](const FolderEntry& pEntry) {
        return pEntry.mPath == pInfo.mCheck.toUtf8() && S_ISREG(pEntry.mStat.st_mode) &&
               TarStream::isExecutable(pEntry);
    });
    return tFound || pInfo.mCheck.isEmpty()
               ? Failure()
               : Failure::content(
                     u"The folder has no executable file %1, which --check names"_s.arg(pInfo.mCheck));
}

// Clients recognise a running script by the arguments of its interpreter, which is less reliable than the
// file of a program.
void warnOfScripts(const PackageInfo& pInfo, const QString& pFolder)
{
    for (const QString& tPath : pInfo.mExecutables) {
        QFile tFile(pFolder + u'/' + tPath);
        if (tFile.open(QIODevice::ReadOnly) && tFile.read(2) == "#!") {
            complain(u"%1 is a script: machines wait for it only if its path is an argument of its "
                     "interpreter. A binary is safer for --executable"_s.arg(tPath));
        }
    }
}

QJsonObject targetOf(const PackResult& pPacked, const PackageInfo& pInfo)
{
    QJsonObject tHashes;
    for (const tuf::Hash& tHash : pPacked.mHashes) {
        tHashes.insert(tuf::hashAlgorithmName(tHash.algorithm()), QString::fromLatin1(tHash.toHex()));
    }
    return QJsonObject{{u"length"_s, pPacked.mLength}, {u"hashes"_s, tHashes}, {u"custom"_s, pInfo.toJson()}};
}

packages::SideFile sideFile(QByteArrayView pBytes)
{
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    tHasher.add(pBytes);
    return {.mLength = pBytes.size(), .mHash = tHasher.result().front()};
}

// Writes the index of what was packed beside the archive.
Failure writeIndex(const QString& pRepository, const PackResult& pPacked, PackageInfo* pInfo)
{
    const QByteArray tText = trees::indexText(pPacked.mFrames, pPacked.mEntries);
    const QByteArray tFile = trees::packIndex(tText);
    const packages::SideFile tName = sideFile(tText);
    pInfo->mIndex = packages::IndexFile{.mFile = sideFile(tFile),
                                        .mText = {.mHash = tName.mHash, .mLength = tName.mLength}};
    return os::replaceFile(os::realFileSystem(), targetsFolder(pRepository) + u'/' + pInfo->mIndex->name(),
                           tFile, 0644);
}

// Clients accept the same version again only with a later date. Sets one in the target if it differs from
// pOld; an empty pOld is not a target. The same package keeps the deltas that lead to it, its halt and its
// phase. In another channel, where its phase is over, with other attachments, critical or a security fix from
// now on, it is still the same to machines that have it.
void makeNewerThan(const QJsonObject& pOld, PackageInfo* pInfo, QJsonObject* pTarget)
{
    const std::optional<PackageInfo> tOld = infoOf(pOld);
    if (!tOld || pInfo->mVersion > tOld->mVersion) {
        return;
    }
    PackageInfo tSame = *tOld;
    if (tSame.mRelease.mChannel != pInfo->mRelease.mChannel) {
        tSame.mRelease.mPhase.reset();
    }
    tSame.mRelease.mChannel = pInfo->mRelease.mChannel;
    tSame.mRelease.mIsCritical = pInfo->mRelease.mIsCritical;
    tSame.mRelease.mSecuritySince = pInfo->mRelease.mSecuritySince;
    tSame.mAttachments = pInfo->mAttachments;
    const QJsonObject tSameTarget = withInfo(pOld, tSame);
    if (asAdded(*pTarget) == asAdded(tSameTarget)) {
        *pTarget = tSameTarget;
        return;
    }
    pInfo->mVersion = vkcore::EnhVersion(pInfo->mVersion.version(), tOld->mVersion.date().addSecs(1));
    *pTarget = withInfo(*pTarget, *pInfo);
}

// Packs the folder and adds the package to the record.
Failure add(const CommandLine& pLine, PackageInfo pInfo, const QList<AttachedFile>& pAttached, int pLevel,
            QString* pReport)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    KeyFolder tKeys(tFileSystem, pLine.keys(), pLine.patience());
    const QString tName = packages::archiveName(pInfo);
    std::vector<FolderEntry> tEntries;
    if (Failure tFailure = tKeys.openPackages(pInfo.mName + u'-')) {
        return tFailure;
    }
    if (Failure tFailure = tKeys.lockRepository(metadataFolder(pLine.repository()))) {
        return tFailure;
    }
    if (Failure tFailure = scanFolder(pLine.argument(1), &tEntries)) {
        return tFailure;
    }
    if (Failure tFailure = checkExecutables(pInfo, tEntries)) {
        return tFailure;
    }
    if (Failure tFailure = checkCheck(pInfo, tEntries)) {
        return tFailure;
    }
    if (tKeys.mRecord.mTargets.contains(tName) && !pLine.isSet("replace")) {
        return Failure::content(u"%1 already exists: use a higher --version, or --replace"_s.arg(tName));
    }
    warnOfScripts(pInfo, pLine.argument(1));
    PackResult tPacked;
    const QString tUnnamed = u"%1/.%2.new"_s.arg(targetsFolder(pLine.repository()), tName);
    const PackOptions tOptions{.mLatest = pInfo.mVersion.date(),
                               .mLevel = pLevel,
                               .mThreads = static_cast<int>(std::thread::hardware_concurrency())};
    if (Failure tFailure =
            packFolder(tFileSystem, pLine.argument(1), tEntries, tOptions, tUnnamed, &tPacked)) {
        return tFailure;
    }
    pInfo.mInstalledSize = tPacked.mInstalledSize;
    if (Failure tFailure =
            writeAttachments(tFileSystem, targetsFolder(pLine.repository()), pAttached, &pInfo)) {
        return tFailure;
    }
    carryFixOn(tKeys.mRecord, targetsFolder(pLine.repository()), &pInfo);
    if (Failure tFailure = writeIndex(pLine.repository(), tPacked, &pInfo)) {
        return tFailure;
    }
    QJsonObject tTarget = targetOf(tPacked, pInfo);
    const QDateTime tDate = pInfo.mVersion.date();
    makeNewerThan(tKeys.mRecord.mTargets.value(tName).toObject(), &pInfo, &tTarget);
    makeNewerThan(tKeys.mRecord.mPublishedTargets.value(tName).toObject(), &pInfo, &tTarget);
    makeNewerThan(tKeys.mRecord.mWithdrawnTargets.value(tName).toObject(), &pInfo, &tTarget);
    const QString tPath = targetPath(pLine.repository(), tName, tTarget);
    if (tFileSystem.rename(QFile::encodeName(tUnnamed), QFile::encodeName(tPath)) != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(tPath));
    }
    tKeys.mRecord.mTargets.insert(tName, tTarget);
    *pReport = u"Added %1: %2 files and folders, %3 unpacked, %4 packed"_s.arg(tName)
                   .arg(tEntries.size())
                   .arg(QLocale::c().formattedDataSize(tPacked.mInstalledSize),
                        QLocale::c().formattedDataSize(tPacked.mLength));
    if (pInfo.mRelease.mSecuritySince) {
        *pReport +=
            u", a security fix for versions below %1"_s.arg(pInfo.mRelease.mSecuritySince->toTarnAppFormat());
    }
    if (pInfo.mVersion.date() != tDate) {
        *pReport += u", dated %1 to replace the other one on machines"_s.arg(
            pInfo.mVersion.date().toUTC().toString(Qt::ISODate));
    }
    return tKeys.savePackage(tName);
}

} // namespace

int cmdAdd(const QStringList& pArguments)
{
    CommandLine tLine(u"add"_s, u"Packs a folder as a package, to be offered from the next \"publish\" on.\n"
                                "The package gets the folder's content with its permissions (writable by the "
                                "owner alone) and its times, which are not later than --date."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    PackageInfo tInfo;
    const std::optional<int> tLevel = tLine.number("level", 1, 19);
    if (!tLevel || !readInfo(tLine, &tInfo)) {
        return StatusUsage;
    }
    const Result<QList<AttachedFile>> tAttached =
        readAttachments(os::realFileSystem(), tLine.values("attach"));
    if (!tAttached) {
        complain(tAttached.failure().mText);
        return tAttached.failure().mKind == Failure::Kind::Person ? StatusUsage : StatusFailed;
    }
    QString tReport;
    if (const Failure tFailure = add(tLine, tInfo, *tAttached, *tLevel, &tReport)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    say(tReport);
    return StatusDone;
}

} // namespace tarn::vkpublish
