#pragma once

#include "internal/Fields.h"

#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

// The values on the service's socket that tell of packages: what is installed, what was, what is left out and
// what is refused. docs/protocol.md explains them.
namespace tarn::vkcore::protocol {

struct PackageVersion
{
    QString mName;
    QString mVersion;
};

struct PackageVersions
{
    QList<PackageVersion> mPackages;
};

// What an operator wants to know first.
struct Overview
{
    ServiceStatus mStatus = StatusIdle;
    ServiceActivity mActivity = ActivityNone;
    QString mVersion; // of the service
    int mCode = 0;    // the result of the last run on record, as the last successful one below
    QString mText;
    QDateTime mEnded;
    QDateTime mLastSuccess;
    QDateTime mNextCheck;       // not set if none is scheduled by date
    QDateTime mMetadataExpires; // the first of the trusted files; not set if that is not known
    // Missing where they are not known.
    std::optional<QString> mOnly = {};                       // what updates install: "all", "security"
    std::optional<QList<PackageVersion>> mPendingFixes = {}; // security updates that are not installed
};

struct HistoryQuery
{
    std::optional<int> mRuns; // how many, the newest
};

// A package in the install log.
struct HistoryPackage
{
    QString mName;
    QString mTitle;
    QString mVersion;
    QString mPrevious; // the version that this one replaced; null if there was none, or it is not known
    QString mStatus;   // "ok", "child_packages_updated", "warning", "error"
    QString mReport;
};

struct HistoryRun
{
    QDateTime mDate;
    std::optional<int> mCode; // the result, if it is known
    std::optional<QString> mText;
    QList<HistoryPackage> mPackages;
};

struct History
{
    QList<HistoryRun> mRuns; // newest first
};

// One thing that is wrong in an installed package.
struct DamageEntry
{
    QString mPath; // in the package, as one plain line for people
    QString mProblem;
    std::optional<QString> mExactPath; // where it is another text
};

struct PackageEntry
{
    QString mName;
    QString mVersion;
    QString mFolder;
    bool mIndexed = false;
    QString mState;     // "sound", "damaged", "unproven", "unchecked"
    QDateTime mChecked; // local time
    qint64 mFiles = 0;
    qint64 mBytes = 0;
    qint64 mDamageCount = 0;
    QList<DamageEntry> mDamage; // the first of them
    // Services before version 1.1 do not send these.
    std::optional<QString> mTitle = {};
    std::optional<QString> mLanguage = {}; // empty: for all languages
    std::optional<qint64> mSize = {};      // unpacked bytes, as published
    std::optional<QDateTime> mInstalled = {};
    std::optional<QString> mPendingFix = {}; // the version of a security update that is not installed
};

struct PackageEntries
{
    QList<PackageEntry> mPackages;
};

// The verification of the installed files.
struct VerificationState
{
    bool mRunning = false;
    bool mWaiting = false; // for the end of an update
    QString mPackage;
    qint64 mBytesDone = 0;
    qint64 mBytesTotal = 0;
    QDateTime mBegan; // of the last one
    QDateTime mEnded; // of the last complete one
    int mDamaged = 0; // packages
    int mUnproven = 0;
    QString mFailure; // why the last one did not come to its end
};

// A package that the last update left out although it was offered.
struct LeftOutPackage
{
    QString mName;
    QString mVersion;
    QString mReason;                    // "held", "phase", "halted", "refused", "requirement", "ordinary"
    QString mRequired;                  // requirement: the package that is missing
    QDateTime mDate;                    // local time; phase: of its turn; held: of the end of the hold
    std::optional<bool> mSecurity = {}; // true: it fixes a flaw of the installed version

    bool operator==(const LeftOutPackage&) const = default;
};

struct LeftOutPackages
{
    QList<LeftOutPackage> mPackages;
};

// What the administrator wants to stay as it is.
struct HoldEntry
{
    QString mName;
    QString mVersions; // the first numbers of those that may be installed; empty: none
    QDateTime mUntil;  // local time; invalid: without end
};

struct HoldEntries
{
    QList<HoldEntry> mHolds;
};

// A kept state of the machine, which it can go back to.
struct GenerationEntry
{
    qint64 mGeneration = 0;
    QDateTime mDate; // local time
    bool mCurrent = false;
    bool mOnTrial = false;
    QList<PackageVersion> mPackages;
};

struct GenerationEntries
{
    QList<GenerationEntry> mGenerations; // the newest first
};

struct GenerationNumber
{
    qint64 mGeneration = 0; // 0: the one before the current one
};

// A package that failed on this machine and is not installed again.
struct RefusalEntry
{
    QString mPackage;
    QString mVersion;
    QString mHash; // of its archive
    QString mReason;
    QDateTime mDate; // local time
};

struct RefusalEntries
{
    QList<RefusalEntry> mRefused; // the oldest first
};

struct PackageName
{
    QString mName;
};

struct Channel
{
    QString mChannel; // empty: stable
};

// What became of an order that may be impossible.
struct Outcome
{
    bool mDone = false;
    QString mReason; // why not, a sentence
};

template <>
inline constexpr auto sFields<PackageVersion> =
    std::tuple{Field{"name", &PackageVersion::mName}, Field{"version", &PackageVersion::mVersion}};

template <>
inline constexpr auto sFields<PackageVersions> = std::tuple{Field{"packages", &PackageVersions::mPackages}};

template <>
inline constexpr auto sFields<Overview> = std::tuple{
    Field{"status", &Overview::mStatus},
    Field{"activity", &Overview::mActivity},
    Field{"version", &Overview::mVersion},
    Field{"code", &Overview::mCode},
    Field{"text", &Overview::mText},
    Field{"ended", &Overview::mEnded},
    Field{"lastSuccess", &Overview::mLastSuccess},
    Field{"nextCheck", &Overview::mNextCheck},
    Field{"metadataExpires", &Overview::mMetadataExpires},
    Field{"only", &Overview::mOnly},
    Field{"pendingSecurity", &Overview::mPendingFixes},
};

template <>
inline constexpr auto sFields<HistoryQuery> = std::tuple{Field{"runs", &HistoryQuery::mRuns}};

template <>
inline constexpr auto sFields<HistoryPackage> = std::tuple{
    Field{"name", &HistoryPackage::mName},       Field{"title", &HistoryPackage::mTitle},
    Field{"version", &HistoryPackage::mVersion}, Field{"previous", &HistoryPackage::mPrevious},
    Field{"status", &HistoryPackage::mStatus},   Field{"report", &HistoryPackage::mReport},
};

template <>
inline constexpr auto sFields<HistoryRun> = std::tuple{
    Field{"date", &HistoryRun::mDate},
    Field{"code", &HistoryRun::mCode},
    Field{"text", &HistoryRun::mText},
    Field{"packages", &HistoryRun::mPackages},
};

template <>
inline constexpr auto sFields<History> = std::tuple{Field{"runs", &History::mRuns}};

template <>
inline constexpr auto sFields<DamageEntry> =
    std::tuple{Field{"path", &DamageEntry::mPath}, Field{"problem", &DamageEntry::mProblem},
               Field{"exactPath", &DamageEntry::mExactPath}};

template <>
inline constexpr auto sFields<PackageEntry> = std::tuple{
    Field{"name", &PackageEntry::mName},
    Field{"version", &PackageEntry::mVersion},
    Field{"folder", &PackageEntry::mFolder},
    Field{"indexed", &PackageEntry::mIndexed},
    Field{"state", &PackageEntry::mState},
    Field{"checked", &PackageEntry::mChecked},
    Field{"files", &PackageEntry::mFiles},
    Field{"bytes", &PackageEntry::mBytes},
    Field{"damageCount", &PackageEntry::mDamageCount},
    Field{"damage", &PackageEntry::mDamage},
    Field{"title", &PackageEntry::mTitle},
    Field{"language", &PackageEntry::mLanguage},
    Field{"size", &PackageEntry::mSize},
    Field{"installed", &PackageEntry::mInstalled},
    Field{"pendingSecurity", &PackageEntry::mPendingFix},
};

template <>
inline constexpr auto sFields<PackageEntries> = std::tuple{Field{"packages", &PackageEntries::mPackages}};

template <>
inline constexpr auto sFields<VerificationState> = std::tuple{
    Field{"running", &VerificationState::mRunning},       Field{"waiting", &VerificationState::mWaiting},
    Field{"package", &VerificationState::mPackage},       Field{"bytesDone", &VerificationState::mBytesDone},
    Field{"bytesTotal", &VerificationState::mBytesTotal}, Field{"began", &VerificationState::mBegan},
    Field{"ended", &VerificationState::mEnded},           Field{"damaged", &VerificationState::mDamaged},
    Field{"unproven", &VerificationState::mUnproven},     Field{"failure", &VerificationState::mFailure},
};

template <>
inline constexpr auto sFields<LeftOutPackage> = std::tuple{
    Field{"name", &LeftOutPackage::mName},     Field{"version", &LeftOutPackage::mVersion},
    Field{"reason", &LeftOutPackage::mReason}, Field{"required", &LeftOutPackage::mRequired},
    Field{"date", &LeftOutPackage::mDate},     Field{"security", &LeftOutPackage::mSecurity},
};

template <>
inline constexpr auto sFields<LeftOutPackages> = std::tuple{Field{"packages", &LeftOutPackages::mPackages}};

template <>
inline constexpr auto sFields<HoldEntry> = std::tuple{
    Field{"name", &HoldEntry::mName},
    Field{"versions", &HoldEntry::mVersions},
    Field{"until", &HoldEntry::mUntil},
};

template <>
inline constexpr auto sFields<HoldEntries> = std::tuple{Field{"holds", &HoldEntries::mHolds}};

template <>
inline constexpr auto sFields<PackageName> = std::tuple{Field{"name", &PackageName::mName}};

template <>
inline constexpr auto sFields<Channel> = std::tuple{Field{"channel", &Channel::mChannel}};

template <>
inline constexpr auto sFields<GenerationEntry> = std::tuple{
    Field{"generation", &GenerationEntry::mGeneration}, Field{"date", &GenerationEntry::mDate},
    Field{"current", &GenerationEntry::mCurrent},       Field{"onTrial", &GenerationEntry::mOnTrial},
    Field{"packages", &GenerationEntry::mPackages},
};

template <>
inline constexpr auto sFields<GenerationEntries> =
    std::tuple{Field{"generations", &GenerationEntries::mGenerations}};

template <>
inline constexpr auto sFields<GenerationNumber> =
    std::tuple{Field{"generation", &GenerationNumber::mGeneration}};

template <>
inline constexpr auto sFields<RefusalEntry> = std::tuple{
    Field{"package", &RefusalEntry::mPackage}, Field{"version", &RefusalEntry::mVersion},
    Field{"hash", &RefusalEntry::mHash},       Field{"reason", &RefusalEntry::mReason},
    Field{"date", &RefusalEntry::mDate},
};

template <>
inline constexpr auto sFields<RefusalEntries> = std::tuple{Field{"refused", &RefusalEntries::mRefused}};

template <>
inline constexpr auto sFields<Outcome> =
    std::tuple{Field{"done", &Outcome::mDone}, Field{"reason", &Outcome::mReason}};

} // namespace tarn::vkcore::protocol
