#include "sqlite/InstallLogStore.h"

#include "internal/LangStringJson.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr int sMaxEntries = 20000;
constexpr qsizetype sMaxTexts = 16 * 1024 * 1024; // bytes in all languages

// True for the entries of a way back: the service names its runs so.
const QByteArray sIsWayBack = "date IN (SELECT date FROM run WHERE key LIKE '%-back')";

LangString textOf(const Statement& pRow, int pColumn)
{
    return langStringFrom(QJsonDocument::fromJson(pRow.bytes(pColumn)).object());
}

// *pRoom: how many bytes of texts may be read yet; without room the package has none.
LoggedPackage packageOf(const Statement& pRow, qsizetype* pRoom)
{
    LoggedPackage tPackage;
    tPackage.mPackage = pRow.text(1);
    tPackage.mParent = pRow.text(2);
    tPackage.mVersion = pRow.text(3);
    tPackage.mStatus = pRow.text(4);
    *pRoom -= pRow.rawBytes(5).size() + pRow.rawBytes(6).size();
    if (*pRoom >= 0) {
        tPackage.mTitle = textOf(pRow, 5);
        tPackage.mReport = textOf(pRow, 6);
    }
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

// pVersions: what was installed before the oldest of the runs, which are newest first. A way back may skip
// some versions: which one it puts in use again is not in the log.
void addPrevious(QList<LoggedRun>* pRuns, QHash<QString, QString> pVersions)
{
    for (auto tRun = pRuns->rbegin(); tRun != pRuns->rend(); ++tRun) {
        for (LoggedPackage& tPackage : tRun->mPackages) {
            tPackage.mPrevious = pVersions.value(tPackage.mPackage);
            if (tPackage.mStatus == "ok"_L1) {
                pVersions.insert(tPackage.mPackage, tPackage.mVersion);
            } else if (tRun->mIsWayBack && tPackage.mPrevious == tPackage.mVersion) {
                pVersions.remove(tPackage.mPackage);
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
    const QByteArray tText = "SELECT date, package, parent, version, status, title, report, " + sIsWayBack +
                             " FROM entry"
                             " WHERE date IN (SELECT DISTINCT date FROM entry ORDER BY date DESC LIMIT ?)"
                             " ORDER BY date DESC, id LIMIT ?";
    Statement tQuery(mDatabase, tText.constData());
    tQuery.bind(1, pMaxCount).bind(2, sMaxEntries);
    QList<LoggedRun> tRuns;
    qsizetype tRoom = sMaxTexts;
    while (tQuery.step()) {
        const QDateTime tDate = QDateTime::fromMSecsSinceEpoch(tQuery.integer(0));
        if (tRuns.isEmpty() || tRuns.last().mDate != tDate) {
            tRuns.append({tDate, tQuery.integer(7) != 0, {}});
        }
        tRuns.last().mPackages.append(packageOf(tQuery, &tRoom));
    }
    if (!tQuery.isOk()) {
        return fail();
    }
    QHash<QString, QString> tVersions;
    if (!tRuns.isEmpty() && !readVersions(&tVersions, namesOf(tRuns), tRuns.last().mDate)) {
        return false;
    }
    addPrevious(&tRuns, tVersions);
    *pRuns = tRuns;
    return true;
}

// The last installed version of each of these packages before a date; empty if it was put out of use.
bool InstallLogStore::readVersions(QHash<QString, QString>* pVersions, const QSet<QString>& pPackages,
                                   const QDateTime& pBefore)
{
    const QByteArray tText = "SELECT package, version, status = 'ok' FROM entry"
                             " WHERE date < ? AND (status = 'ok' OR " +
                             sIsWayBack + ") ORDER BY date DESC, id DESC LIMIT ?";
    Statement tQuery(mDatabase, tText.constData());
    tQuery.bind(1, pBefore.toMSecsSinceEpoch()).bind(2, sMaxEntries);
    QHash<QString, QString> tPutOutOfUse;
    while (pVersions->size() < pPackages.size() && tQuery.step()) {
        const QString tPackage = tQuery.text(0);
        if (!pPackages.contains(tPackage) || pVersions->contains(tPackage)) {
            continue;
        }
        const QString tVersion = tQuery.text(1);
        if (tQuery.integer(2) == 0) {
            tPutOutOfUse.insert(tPackage, tVersion);
        } else {
            pVersions->insert(tPackage, tPutOutOfUse.value(tPackage) == tVersion ? QString() : tVersion);
        }
    }
    return tQuery.isOk() || fail();
}

bool InstallLogStore::readDates(QHash<QString, QDateTime>* pDates, const QHash<QString, QString>& pVersions)
{
    if (!mDatabase.isOpen()) {
        return true;
    }
    Statement tQuery(mDatabase, "SELECT date, package, version FROM entry WHERE status = 'ok'"
                                " ORDER BY date DESC, id DESC LIMIT ?");
    tQuery.bind(1, sMaxEntries);
    while (pDates->size() < pVersions.size() && tQuery.step()) {
        const QString tPackage = tQuery.text(1);
        if (!pDates->contains(tPackage) && pVersions.value(tPackage) == tQuery.text(2)) {
            pDates->insert(tPackage, QDateTime::fromMSecsSinceEpoch(tQuery.integer(0)));
        }
    }
    return tQuery.isOk() || fail();
}

} // namespace tarn::vkcore
