#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyOptions.h"
#include "keys/KeyFolder.h"
#include "keys/SigningTime.h"
#include "publication/Layout.h"
#include "publication/NewRepository.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMostKeys = 16;

QString rootPath(const CommandLine& pLine)
{
    return versionedPath(pLine.repository(), tuf::sRoot, 1);
}

// How many keys the roles root and targets get, and how many of them must sign.
struct Shares
{
    int mThreshold = 1;
    int mCount = 1;
};

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
    if (const Failure tFailure = makeRepository(os::realFileSystem(),
                                                {.mPath = tLine.repository(),
                                                 .mKeys = *tOrder,
                                                 .mCount = tShares->mCount,
                                                 .mThreshold = tShares->mThreshold,
                                                 .mRootExpires = signingTime().addDays(*tDays)},
                                                &tKeys)) {
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
