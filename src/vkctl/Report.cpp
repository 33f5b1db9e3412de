#include "Report.h"

#include "PlainTexts.h"

#include "internal/PlainText.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

using namespace vkcore::protocol;
using vkcore::singleLine;

namespace {

QString label(const PackageEntry& pPackage)
{
    return pPackage.mName + u' ' + pPackage.mVersion;
}

QString joined(const QStringList& pLines)
{
    return pLines.join(u'\n');
}

QString inColumns(const QList<QStringList>& pRows)
{
    QStringList tLines(pRows.size());
    for (qsizetype tColumn = 0; tColumn < pRows.first().size(); ++tColumn) {
        qsizetype tWidth = 0;
        for (const QStringList& tRow : pRows) {
            tWidth = std::max(tWidth, tRow[tColumn].size());
        }
        for (qsizetype i = 0; i < pRows.size(); ++i) {
            tLines[i] += pRows[i][tColumn].leftJustified(tWidth + 2);
        }
    }
    for (QString& tLine : tLines) {
        while (tLine.endsWith(u' ')) {
            tLine.chop(1);
        }
    }
    return joined(tLines);
}

// With the exact path of each difference as its path.
QJsonObject jsonOf(PackageEntries pPackages, const VerificationState& pVerification)
{
    for (PackageEntry& tPackage : pPackages.mPackages) {
        for (DamageEntry& tDamage : tPackage.mDamage) {
            tDamage = {tDamage.mExactPath.value_or(tDamage.mPath), tDamage.mProblem, std::nullopt};
        }
    }
    QJsonObject tJson = toJson(pPackages);
    tJson.insert("verification"_L1, toJson(pVerification));
    return tJson;
}

} // namespace

Report::Report(const PackageEntries& pPackages, const VerificationState& pVerification)
    : mJson(jsonOf(pPackages, pVerification)), mPackages(pPackages), mVerification(pVerification)
{
    for (PackageEntry& tPackage : mPackages.mPackages) {
        for (QString* tText : {&tPackage.mName, &tPackage.mVersion, &tPackage.mFolder, &tPackage.mState}) {
            *tText = singleLine(*tText);
        }
        tPackage.mTitle = singleLine(tPackage.mTitle.value_or(QString()));
        tPackage.mLanguage = singleLine(tPackage.mLanguage.value_or(QString()));
        tPackage.mPendingFix = singleLine(tPackage.mPendingFix.value_or(QString()));
        for (DamageEntry& tDamage : tPackage.mDamage) {
            tDamage = {singleLine(tDamage.mPath), singleLine(tDamage.mProblem), std::nullopt};
        }
    }
    mVerification.mPackage = singleLine(mVerification.mPackage);
    mVerification.mFailure = singleLine(mVerification.mFailure, vkcore::sMaxMessage);
    static const QString sResults[] = {u"sound"_s, u"failed"_s, u"damaged"_s, u"unproven"_s};
    mJson.insert("result"_L1, sResults[status()]);
}

QStringList Report::names(QLatin1StringView pState) const
{
    QStringList tNames;
    for (const PackageEntry& tPackage : mPackages.mPackages) {
        if (tPackage.mState == pState) {
            tNames.append(label(tPackage));
        }
    }
    return tNames;
}

ExitStatus Report::status() const
{
    const auto tHasState = [](QLatin1StringView pState) {
        return [pState](const PackageEntry& pPackage) { return pPackage.mState == pState; };
    };
    const auto& tPackages = mPackages.mPackages;
    if (std::any_of(tPackages.begin(), tPackages.end(), tHasState("damaged"_L1))) {
        return StatusDamaged;
    }
    return std::all_of(tPackages.begin(), tPackages.end(), tHasState("sound"_L1)) ? StatusSound
                                                                                  : StatusUnproven;
}

QString Report::stateText(const QString& pState)
{
    if (pState == "sound"_L1) {
        return tr("sound");
    }
    if (pState == "damaged"_L1) {
        return tr("damaged");
    }
    return pState == "unproven"_L1 ? tr("can't be proven") : tr("not verified yet");
}

QString Report::problemText(const QString& pProblem)
{
    const std::pair<QLatin1StringView, QString> tTexts[] = {
        {"missing"_L1, tr("is missing")},      {"extra"_L1, tr("does not belong to the package")},
        {"kind"_L1, tr("is of another kind")}, {"mode"_L1, tr("has other permissions or another owner")},
        {"size"_L1, tr("has another size")},   {"content"_L1, tr("has other content")},
        {"target"_L1, tr("leads elsewhere")},  {"unreadable"_L1, tr("can't be read")},
    };
    for (const auto& [tWord, tText] : tTexts) {
        if (pProblem == tWord) {
            return tText;
        }
    }
    return pProblem;
}

QString Report::overview() const
{
    const QDateTime tEnded = mVerification.mEnded;
    QStringList tLines{tr("Last verification: %1").arg(tEnded.isValid() ? dateText(tEnded) : tr("never"))};
    if (mVerification.mRunning) {
        tLines.append(mVerification.mWaiting ? tr("A verification waits for the end of the update.")
                                             : tr("A verification is running."));
    }
    tLines.append(tr("Installed packages: %1").arg(mPackages.mPackages.size()));
    for (const PackageEntry& tPackage : mPackages.mPackages) {
        tLines.append(u"  %1: %2"_s.arg(label(tPackage), stateText(tPackage.mState)));
    }
    return joined(tLines);
}

QString Report::table() const
{
    QList<QStringList> tRows{
        {tr("NAME"), tr("VERSION"), tr("LANGUAGE"), tr("SIZE"), tr("INSTALLED"), tr("STATE"), tr("TITLE")}};
    for (const PackageEntry& tPackage : mPackages.mPackages) {
        const QDateTime tInstalled = tPackage.mInstalled.value_or(QDateTime());
        const QString tLanguage = tPackage.mLanguage.value_or(QString());
        const QString tFix = tPackage.mPendingFix.value_or(QString());
        const QString tState = stateText(tPackage.mState);
        tRows.append({tPackage.mName, tPackage.mVersion, tLanguage.isEmpty() ? u"-"_s : tLanguage,
                      tPackage.mSize ? bytesText(*tPackage.mSize) : u"-"_s,
                      tInstalled.isValid() ? dateText(tInstalled) : u"-"_s,
                      tFix.isEmpty() ? tState : tr("%1, lacks the security update %2").arg(tState, tFix),
                      tPackage.mTitle.value_or(QString())});
    }
    return inColumns(tRows);
}

QString Report::damage() const
{
    QStringList tLines;
    for (const PackageEntry& tPackage : mPackages.mPackages) {
        if (tPackage.mState != "damaged"_L1) {
            continue;
        }
        tLines.append(tr("Damaged: %1 in %2").arg(label(tPackage), tPackage.mFolder));
        for (const DamageEntry& tDamage : tPackage.mDamage) {
            const QString tPath = tDamage.mPath.isEmpty() ? u"."_s : tDamage.mPath;
            tLines.append(u"  %1: %2"_s.arg(tPath, problemText(tDamage.mProblem)));
        }
        if (tPackage.mDamageCount > tPackage.mDamage.size()) {
            tLines.append(tr("  and %1 more").arg(tPackage.mDamageCount - tPackage.mDamage.size()));
        }
    }
    return joined(tLines);
}

QString Report::summary() const
{
    qint64 tFiles = 0;
    qint64 tBytes = 0;
    for (const PackageEntry& tPackage : mPackages.mPackages) {
        tFiles += tPackage.mFiles;
        tBytes += tPackage.mBytes;
    }
    QStringList tLines{tr("Verified: %1 files, %2; packages: %3")
                           .arg(tFiles)
                           .arg(bytesText(tBytes))
                           .arg(mPackages.mPackages.size())};
    const QStringList tUnproven = names("unproven"_L1) + names("unchecked"_L1);
    if (!tUnproven.isEmpty()) {
        tLines.append(
            tr("These packages have no index and can't be proven: %1").arg(tUnproven.join(u", "_s)));
    }
    if (hasDamage()) {
        tLines.append(damage());
        tLines.append(tr("The next update or \"vkctl repair\" installs the damaged packages again."));
    } else if (tUnproven.isEmpty()) {
        tLines.append(tr("All files are as they were published."));
    }
    return joined(tLines);
}

} // namespace tarn::vkctl
