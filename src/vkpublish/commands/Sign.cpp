#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/OfflineKeys.h"
#include "commands/OutputFile.h"
#include "keys/KeyFolder.h"
#include "keys/SignatureFile.h"
#include "review/Review.h"

#include "internal/StandardOutput.h"
#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Result<Payload> readFile(const CommandLine& pLine)
{
    const Result<QByteArray> tFile = os::readFile(os::realFileSystem(), pLine.argument(0), sMaxPayloadFile);
    Result<Payload> tPayload = tFile ? readBytesToSign(*tFile) : tFile.failure();
    if (!tPayload) {
        return tPayload;
    }
    const QDateTime tExpires = QDateTime::fromString(tPayload->mSigned["expires"_L1].toString(), Qt::ISODate);
    if (tExpires <= QDateTime::currentDateTimeUtc()) {
        return Failure::content(
            u"It has expired on %1, by this machine's clock"_s.arg(tExpires.toString(Qt::ISODate)));
    }
    return tPayload;
}

Failure ask(const CommandLine& pLine)
{
    if (pLine.isSet("yes")) {
        return {};
    }
    vkcore::writeOutput("Sign this? [y/N] ");
    if (const int tLost = vkcore::flushOutput()) {
        return Failure::fromErrno(tLost, u"show what is to be signed, so nothing was"_s);
    }
    char tAnswer[16] = "";
    const bool tRead = std::fgets(tAnswer, sizeof(tAnswer), stdin) != nullptr;
    const QByteArray tWord = QByteArray(tAnswer).trimmed().toLower();
    return tRead && (tWord == "y" || tWord == "yes")
               ? Failure()
               : Failure{Failure::Kind::Canceled, u"Nothing was signed"_s};
}

// Those of one folder have one passphrase, as a rule.
Result<QList<Signer>> openKeys(const QList<OfflineKey>& pKeys)
{
    QMap<QString, QStringList> tFolders;
    for (const OfflineKey& tKey : pKeys) {
        tFolders[tKey.mFolder].append(tKey.mName);
    }
    QList<Signer> tSigners;
    for (auto tIt = tFolders.begin(); tIt != tFolders.end(); ++tIt) {
        const auto tOfFolder = KeyFolder(os::realFileSystem(), tIt.key()).openKeyFiles(*tIt);
        if (!tOfFolder) {
            return tOfFolder.failure();
        }
        for (const Signer& tSigner : *tOfFolder) {
            // A key and the command for it may both be there.
            if (std::none_of(tSigners.begin(), tSigners.end(),
                             [&](const Signer& pOther) { return pOther.id() == tSigner.id(); })) {
                tSigners.append(tSigner);
            }
        }
    }
    return tSigners;
}

Failure sign(const CommandLine& pLine, const Payload& pPayload, const QList<OfflineKey>& pKeys)
{
    const Result<QList<Signer>> tSigners = openKeys(pKeys);
    if (!tSigners) {
        return tSigners.failure();
    }
    const Result<QList<tuf::Signature>> tSignatures = signBytes(pPayload.mBytes, *tSigners);
    if (!tSignatures) {
        return tSignatures.failure();
    }
    const SignatureFile tFile{
        .mRole = pPayload.mRole, .mSha256 = tuf::sha256(pPayload.mBytes), .mSignatures = *tSignatures};
    if (Failure tFailure = writeOutputFile(pLine.value("output"), tFile.toJson())) {
        return tFailure;
    }
    for (const tuf::Signature& tSignature : *tSignatures) {
        say(u"Signed with the key %1"_s.arg(tSignature.mKeyId));
    }
    return rememberSigned(os::realFileSystem(), pKeys, pPayload);
}

Failure run(const CommandLine& pLine)
{
    const Result<Payload> tPayload = readFile(pLine);
    if (!tPayload) {
        return tPayload.failure();
    }
    QList<OfflineKey> tKeys;
    const Result<QStringList> tReview = reviewOffline(pLine, *tPayload, &tKeys);
    if (!tReview) {
        return tReview.failure();
    }
    for (const QString& tText : *tReview) {
        say(tText);
    }
    const Failure tRefused = ask(pLine);
    return tRefused ? tRefused : sign(pLine, *tPayload, tKeys);
}

} // namespace

int cmdSign(const QStringList& pArguments)
{
    CommandLine tLine(
        u"sign"_s, u"Shows what a payload changes since the last one that these keys signed, asks, and signs "
                   "it. Needs no repository."_s);
    tLine.addArgument(u"FILE"_s, u"What \"vkpublish payload\" has written"_s);
    tLine.addOption(u"output"_s, u"Where to write the signature"_s, u"FILE"_s);
    addOfflineKeys(&tLine);
    tLine.addOption(u"yes"_s, u"Do not ask"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (!tLine.isSet("output") || (!tLine.isSet("key") && !tLine.isSet("keys"))) {
        complain(u"sign needs --output, and --key or --keys"_s);
        return StatusUsage;
    }
    if (const Failure tFailure = run(tLine)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
