#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyOptions.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "keys/RootDocument.h"
#include "keys/SigningTime.h"
#include "publication/Layout.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMostKeys = 16;

Failure checkPlaces(const QString& pRepository, const QString& pKeys)
{
    if (isInside(pKeys, pRepository)) {
        return Failure::content(
            u"The key folder %1 is in the repository, whose files are public"_s.arg(pKeys));
    }
    if (isInside(pRepository, pKeys)) {
        return Failure::content(
            u"The repository %1 is in the key folder, which nobody else can read"_s.arg(pRepository));
    }
    if (QFileInfo::exists(metadataFolder(pRepository))) {
        return Failure::content(u"%1 already contains a repository"_s.arg(pRepository));
    }
    return {};
}

Failure makeFolders(const QString& pRepository)
{
    for (const QString& tFolder : {metadataFolder(pRepository), targetsFolder(pRepository)}) {
        if (!QDir().mkpath(tFolder)) {
            return Failure::content(u"The folder %1 can't be created"_s.arg(tFolder));
        }
    }
    return {};
}

// How many keys the roles root and targets get, and how many of them must sign.
struct Shares
{
    int mThreshold = 1;
    int mCount = 1;
};

Result<Draft> makeKeys(KeyFolder* pFolder, const KeyOrder& pOrder, const Shares& pShares,
                       const QDateTime& pExpires)
{
    RootDocument tRoot;
    QList<Signer> tSigners;
    for (const QString& tRole : roleNames()) {
        const bool tIsShared = tRole == tuf::sRoot || tRole == tuf::sTargets;
        for (int i = 0; i < (tIsShared ? pShares.mCount : 1); ++i) {
            const Result<KeyFile> tKey = makeKey(pOrder, &pFolder->passphrases());
            if (!tKey) {
                return tKey.failure();
            }
            if (Failure tFailure = pFolder->addKey(tRole, *tKey)) {
                return tFailure;
            }
            tRoot.addKey(tRole, tKey->mSigner.publicJson());
            if (tRole == tuf::sRoot) {
                tSigners.append(tKey->mSigner);
            }
        }
        tRoot.setThreshold(tRole, tIsShared ? pShares.mThreshold : 1);
    }
    Draft tDraft{.mRole = tuf::sRoot, .mPayload = tRoot.payload(1, pExpires), .mSignatures = {}};
    const Result<QList<tuf::Signature>> tSignatures = signBytes(tDraft.mPayload, tSigners);
    if (!tSignatures) {
        return tSignatures.failure();
    }
    tDraft.mSignatures = *tSignatures;
    return tDraft;
}

Failure makeFirstRoot(KeyFolder* pFolder, const KeyOrder& pOrder, const Shares& pShares,
                      const QDateTime& pExpires)
{
    const Result<Draft> tRoot = makeKeys(pFolder, pOrder, pShares, pExpires);
    if (!tRoot) {
        return tRoot.failure();
    }
    pFolder->mRecord.mVersions[tuf::sRoot] = 1;
    pFolder->mRecord.mRoot = tRoot->file();
    return pFolder->save();
}

QString rootPath(const CommandLine& pLine)
{
    return versionedPath(pLine.repository(), tuf::sRoot, 1);
}

Failure makeRepository(const CommandLine& pLine, KeyFolder* pKeys, const KeyOrder& pOrder,
                       const Shares& pShares, const QDateTime& pExpires)
{
    if (Failure tFailure = checkPlaces(pLine.repository(), pLine.keys())) {
        return tFailure;
    }
    if (Failure tFailure = pKeys->checkEmpty()) {
        return tFailure;
    }
    // Before there is a folder that would stay if nobody gives one.
    if (pOrder.mEncrypt) {
        if (const Result<const Secret*> tPassphrase = pKeys->passphrases().forNew(); !tPassphrase) {
            return tPassphrase.failure();
        }
    }
    if (Failure tFailure = pKeys->create()) {
        return tFailure;
    }
    if (Failure tFailure = makeFirstRoot(pKeys, pOrder, pShares, pExpires)) {
        return tFailure;
    }
    if (Failure tFailure = makeFolders(pLine.repository())) {
        return tFailure;
    }
    return os::replaceFile(os::realFileSystem(), rootPath(pLine), pKeys->mRecord.mRoot, 0644);
}

std::optional<Shares> readShares(const CommandLine& pLine)
{
    const std::optional<int> tThreshold = pLine.number("threshold", 1, sMostKeys);
    const std::optional<int> tCount = pLine.number("key-count", 1, sMostKeys);
    if (!tThreshold || !tCount) {
        return std::nullopt;
    }
    if (*tThreshold > *tCount) {
        complain(u"%1 signatures can't be had from %2: give as many with --key-count"_s.arg(*tThreshold)
                     .arg(*tCount == 1 ? u"1 key"_s : u"%1 keys"_s.arg(*tCount)));
        return std::nullopt;
    }
    return Shares{.mThreshold = *tThreshold, .mCount = *tCount};
}

} // namespace

int cmdInit(const QStringList& pArguments)
{
    CommandLine tLine(u"init"_s, u"Creates the keys and the first root of a new repository."_s);
    tLine.addRepository();
    addKeyOptions(&tLine);
    tLine.addOption(u"key-count"_s, u"How many keys to make for the root, and for the targets"_s, u"N"_s,
                    u"1"_s);
    tLine.addOption(u"threshold"_s, u"How many of them must sign"_s, u"M"_s, u"1"_s);
    tLine.addOption(u"root-days"_s, u"How long the root is valid, in days"_s, u"DAYS"_s, u"3650"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<int> tDays = tLine.number("root-days", 1, 36500);
    const std::optional<Shares> tShares = readShares(tLine);
    const std::optional<KeyOrder> tOrder = readKeyOptions(tLine, KeyOptions::KeysOnly);
    if (!tDays || !tShares || !tOrder) {
        return StatusUsage;
    }

    KeyFolder tKeys(os::realFileSystem(), tLine.keys());
    if (const Failure tFailure =
            makeRepository(tLine, &tKeys, *tOrder, *tShares, signingTime().addDays(*tDays))) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    say(u"Keys:               %1 (keep it private, and keep a copy)"_s.arg(tLine.keys()));
    say(u"Root for clients:   %1"_s.arg(rootPath(tLine)));
    if (tShares->mCount > 1) {
        say(u"Keys for people:    move each root-*.pem and targets-*.pem to the machine of its owner"_s);
    }
    say(u"Next:               vkpublish add %1 FOLDER --name NAME --version VERSION"_s.arg(
        tLine.argument(0)));
    return StatusDone;
}

} // namespace tarn::vkpublish
