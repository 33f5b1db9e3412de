#include "sqlite/InstallLogStore.h"

#include "internal/InstallLogModule.h"
#include "internal/LangStringJson.h"

#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <limits>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

// Dates are milliseconds since 1970, UTC. A text by language is a JSON object, NULL if empty.
constexpr const char* sSteps[] = {R"(
CREATE TABLE run (
    key TEXT PRIMARY KEY,
    date INTEGER NOT NULL
) WITHOUT ROWID;
CREATE TABLE entry (
    id INTEGER PRIMARY KEY,
    date INTEGER NOT NULL,
    package TEXT NOT NULL,
    parent TEXT,
    version TEXT NOT NULL,
    version_date INTEGER,
    status TEXT NOT NULL,
    title TEXT,
    report TEXT
);
CREATE INDEX entry_by_date ON entry (date);
)"};
constexpr int sSchemaVersion = std::size(sSteps);

QString toJsonText(const LangString& pText)
{
    if (pText.isEmpty()) {
        return {};
    }
    return QString::fromUtf8(QJsonDocument(toJson(pText)).toJson(QJsonDocument::Compact));
}

LangString fromJsonText(const QByteArray& pJson)
{
    return langStringFrom(QJsonDocument::fromJson(pJson).object());
}

constexpr int sNoLimit = std::numeric_limits<int>::max();

// Oldest first, in file order. Only with a limit, the newest ones are read first and then reversed.
QByteArray queryOf(int pMaxCount, bool pTopLevelOnly)
{
    const QByteArray tRows =
        QByteArray("SELECT date, package, version, version_date, status, title, report, id "
                   "FROM entry WHERE date BETWEEN ? AND ?") +
        (pTopLevelOnly ? " AND parent IS NULL" : "");
    return pMaxCount == sNoLimit
               ? tRows + " ORDER BY date, id"
               : "SELECT * FROM (" + tRows + " ORDER BY date DESC, id DESC LIMIT ?) ORDER BY date, id";
}

// Converts the rows of that query to entries. Many rows share the same few titles, versions, words and dates:
// each is parsed once.
class RowReader
{
public:
    InstLogEntry* entryOf(const Statement& pRow)
    {
        auto* tEntry = new InstLogEntry;
        tEntry->mDate = mDates.date(pRow.integer(0));
        tEntry->mName = cached(mTexts, pRow.rawBytes(5), fromJsonText);
        if (tEntry->mName.isEmpty()) {
            tEntry->mName.setValue(u"en"_s, pRow.text(1));
        }
        tEntry->mVersion = cached(mVersions, pRow.rawBytes(2), [](const QByteArray& pText) {
            return Version::fromString(QString::fromUtf8(pText));
        });
        if (!pRow.isNull(3)) {
            tEntry->mVersionDate = mVersionDates.date(pRow.integer(3));
        }
        tEntry->mStatus = cached(mWords, pRow.rawBytes(4),
                                 [](const QByteArray& pText) { return QString::fromUtf8(pText); });
        tEntry->mInstallReport = cached(mTexts, pRow.rawBytes(6), fromJsonText);
        return tEntry;
    }

private:
    static constexpr qsizetype sMaxCached = 4096;

    // pRaw is only valid temporarily, so the cache keeps a copy.
    template <typename T, typename Make>
    static T cached(QHash<QByteArray, T>& pCache, const QByteArray& pRaw, Make pMake)
    {
        if (pRaw.isEmpty()) {
            return {};
        }
        const auto tFound = pCache.constFind(pRaw);
        if (tFound != pCache.cend()) {
            return *tFound;
        }
        if (pCache.size() >= sMaxCached) {
            pCache.clear();
        }
        return *pCache.insert(QByteArray(pRaw.constData(), pRaw.size()), pMake(pRaw));
    }

    // Time zone rules are slow to query, and the entries of a run mostly have one date.
    class DateReader
    {
    public:
        const QDateTime& date(qint64 pMs)
        {
            if (pMs != mMs) {
                mMs = pMs;
                mDate = QDateTime::fromMSecsSinceEpoch(pMs);
            }
            return mDate;
        }

    private:
        qint64 mMs = 0;
        QDateTime mDate = QDateTime::fromMSecsSinceEpoch(0);
    };

    DateReader mDates;
    DateReader mVersionDates;
    QHash<QByteArray, LangString> mTexts;
    QHash<QByteArray, Version> mVersions;
    QHash<QByteArray, QString> mWords;
};

} // namespace

QString InstallLogStore::fileName()
{
    return sInstallLogName;
}

bool InstallLogStore::fail()
{
    mErrorText = mDatabase.errorText();
    return false;
}

bool InstallLogStore::checkVersion()
{
    const int tVersion = mDatabase.schemaVersion();
    if (tVersion == sSchemaVersion) {
        return true;
    }
    if (tVersion < 0) {
        return fail();
    }
    mErrorText = u"the log has the unknown format %1"_s.arg(tVersion);
    return false;
}

bool InstallLogStore::openForWriting(const QString& pPath)
{
    if (!mDatabase.open(pPath, Database::Mode::ReadWrite)) {
        return fail();
    }
    ::chmod(QFile::encodeName(pPath).constData(), 0644);
    return mDatabase.migrate(sSteps) || fail();
}

QString InstallLogStore::setAside()
{
    const QString tAside = mDatabase.setAside();
    fail();
    return tAside;
}

bool InstallLogStore::openForReading(const QString& pPath)
{
    if (!QFile::exists(pPath)) {
        mDatabase.close();
        return true;
    }
    return mDatabase.open(pPath, Database::Mode::ReadOnly) ? checkVersion() : fail();
}

std::optional<bool> InstallLogStore::knows(const QString& pRunId)
{
    Statement tKnown(mDatabase, "SELECT 1 FROM run WHERE key = ?");
    const bool tIsThere = tKnown.bind(1, pRunId).step();
    return tKnown.isOk() ? std::optional(tIsThere) : std::nullopt;
}

bool InstallLogStore::append(const QString& pRunId, const QDateTime& pDate, const QList<LogRecord>& pRecords)
{
    // Without a transaction, whose lock others can block.
    if (const auto tKnown = knows(pRunId); !tKnown || *tKnown) {
        return tKnown || fail();
    }
    const bool tOk = mDatabase.transaction([&] {
        const qint64 tDate = pDate.toMSecsSinceEpoch();
        Statement tRun(mDatabase, "INSERT INTO run (key, date) VALUES (?, ?)");
        if (!tRun.bind(1, pRunId).bind(2, tDate).run()) {
            return false;
        }
        Statement tInsert(
            mDatabase,
            "INSERT INTO entry (date, package, parent, version, version_date, status, title, report)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
        return std::all_of(pRecords.cbegin(), pRecords.cend(), [&](const LogRecord& pRecord) {
            tInsert.bind(1, tDate)
                .bind(2, pRecord.mPackage)
                .bind(3, pRecord.mParent)
                .bind(4, pRecord.mVersion);
            if (pRecord.mVersionDate.isValid()) {
                tInsert.bind(5, pRecord.mVersionDate.toMSecsSinceEpoch());
            }
            tInsert.bind(6, pRecord.mStatus)
                .bind(7, toJsonText(pRecord.mTitle))
                .bind(8, toJsonText(pRecord.mReport));
            return tInsert.run();
        });
    });
    return tOk || fail();
}

bool InstallLogStore::read(QList<GRef2<InstLogEntry>>* pEntries, const QDateTime& pFrom, const QDateTime& pTo,
                           int pMaxCount, bool pTopLevelOnly)
{
    if (!mDatabase.isOpen() || pMaxCount <= 0) {
        return true;
    }
    Statement tQuery(mDatabase, queryOf(pMaxCount, pTopLevelOnly).constData());
    tQuery.bind(1, pFrom.isValid() ? pFrom.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min())
        .bind(2, pTo.isValid() ? pTo.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max());
    if (pMaxCount < sNoLimit) {
        tQuery.bind(3, pMaxCount);
    }
    RowReader tReader;
    QList<GRef2<InstLogEntry>> tFound;
    while (tQuery.step()) {
        tFound.append(GRef2<InstLogEntry>(tReader.entryOf(tQuery)));
    }
    if (!tQuery.isOk()) {
        return fail();
    }
    pEntries->append(std::move(tFound));
    return true;
}

} // namespace tarn::vkcore
