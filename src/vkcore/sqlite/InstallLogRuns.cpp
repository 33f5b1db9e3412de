#include "sqlite/InstallLogStore.h"

#include "internal/LangStringJson.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr int sMaxEntries = 20000;

LangString textOf(const Statement& pRow, int pColumn)
{
    return langStringFrom(QJsonDocument::fromJson(pRow.bytes(pColumn)).object());
}

LoggedPackage packageOf(const Statement& pRow)
{
    LoggedPackage tPackage;
    tPackage.mPackage = pRow.text(1);
    tPackage.mParent = pRow.text(2);
    tPackage.mVersion = pRow.text(3);
    tPackage.mStatus = pRow.text(4);
    tPackage.mTitle = textOf(pRow, 5);
    tPackage.mReport = textOf(pRow, 6);
    return tPackage;
}

QSet<QString> namesOf(const QList<LoggedRun>& pRuns)
{
    QSet<QString> tNames;
    for (const LoggedRun& tRun : pRuns) {
        for (const LoggedPackage& tPackage : tRun.mPackages) {
            tNames.insert(tPackage.mPackage);
        }
    }
    return tNames;
}

// pVersions: what was installed before the oldest of the runs, which are newest first.
void addPrevious(QList<LoggedRun>* pRuns, QHash<QString, LoggedVersion> pVersions)
{
    for (auto tRun = pRuns->rbegin(); tRun != pRuns->rend(); ++tRun) {
        for (LoggedPackage& tPackage : tRun->mPackages) {
            tPackage.mPrevious = pVersions.value(tPackage.mPackage).mVersion;
            if (tPackage.mStatus == "ok"_L1) {
                pVersions.insert(tPackage.mPackage, {tPackage.mVersion, tRun->mDate});
            }
        }
    }
}

} // namespace

bool InstallLogStore::readRuns(QList<LoggedRun>* pRuns, int pMaxCount)
{
    if (!mDatabase.isOpen()) {
        return true;
    }
    Statement tQuery(mDatabase, "SELECT date, package, parent, version, status, title, report FROM entry"
                                " WHERE date IN (SELECT DISTINCT date FROM entry ORDER BY date DESC LIMIT ?)"
                                " ORDER BY date DESC, id LIMIT ?");
    tQuery.bind(1, pMaxCount).bind(2, sMaxEntries);
    QList<LoggedRun> tRuns;
    while (tQuery.step()) {
        const QDateTime tDate = QDateTime::fromMSecsSinceEpoch(tQuery.integer(0));
        if (tRuns.isEmpty() || tRuns.last().mDate != tDate) {
            tRuns.append({tDate, {}});
        }
        tRuns.last().mPackages.append(packageOf(tQuery));
    }
    if (!tQuery.isOk()) {
        return fail();
    }
    QHash<QString, LoggedVersion> tVersions;
    if (!tRuns.isEmpty() && !readVersions(&tVersions, namesOf(tRuns), tRuns.last().mDate)) {
        return false;
    }
    addPrevious(&tRuns, tVersions);
    *pRuns = tRuns;
    return true;
}

bool InstallLogStore::readVersions(QHash<QString, LoggedVersion>* pVersions, const QSet<QString>& pPackages,
                                   const QDateTime& pBefore)
{
    if (!mDatabase.isOpen()) {
        return true;
    }
    Statement tQuery(mDatabase, "SELECT date, package, version FROM entry WHERE date < ? AND status = 'ok'"
                                " ORDER BY date DESC, id DESC LIMIT ?");
    tQuery.bind(1, pBefore.isValid() ? pBefore.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max())
        .bind(2, sMaxEntries);
    while (pVersions->size() < pPackages.size() && tQuery.step()) {
        const QString tPackage = tQuery.text(1);
        if (pPackages.contains(tPackage) && !pVersions->contains(tPackage)) {
            pVersions->insert(tPackage, {tQuery.text(2), QDateTime::fromMSecsSinceEpoch(tQuery.integer(0))});
        }
    }
    return tQuery.isOk() || fail();
}

} // namespace tarn::vkcore
