#include "sqlite/InstallLogStore.h"

#include "installlog/InstallLogReader.h"

#include <QtCore/QFile>
#include <QtCore/QHash>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <limits>

#include <sys/stat.h>

namespace tarn::vkcore {

namespace {

constexpr int sSchemaVersion = 1;

// Dates are milliseconds since 1970, UTC. A text by language is a JSON object, NULL where it is empty.
constexpr auto sSchema = R"(
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
)";

QString toJsonText(const LangString& pText)
{
    if (pText.isEmpty()) {
        return {};
    }
    QJsonObject tObject;
    for (auto tValue = pText.values().cbegin(); tValue != pText.values().cend(); ++tValue) {
        tObject.insert(tValue.key(), tValue.value());
    }
    return QString::fromUtf8(QJsonDocument(tObject).toJson(QJsonDocument::Compact));
}

LangString fromJsonText(const QByteArray& pJson)
{
    LangString tText;
    const QJsonObject tObject = QJsonDocument::fromJson(pJson).object();
    for (auto tValue = tObject.constBegin(); tValue != tObject.constEnd(); ++tValue) {
        tText.setValue(tValue.key(), tValue.value().toString());
    }
    return tText;
}

// Makes entries of rows. The same few titles, versions and dates stand in very many rows: each is parsed
// once.
class RowReader
{
public:
    static constexpr auto sColumns = "date, package, version, version_date, status, title, report";

    InstLogEntry* entryOf(const Statement& pRow)
    {
        auto* tEntry = new InstLogEntry;
        tEntry->mDate = date(pRow.integer(0));
        tEntry->mName = text(pRow.bytes(5));
        if (tEntry->mName.isEmpty()) {
            tEntry->mName.setValue(QStringLiteral("en"), pRow.text(1));
        }
        tEntry->mVersion = version(pRow.bytes(2));
        if (!pRow.isNull(3)) {
            tEntry->mVersionDate = date(pRow.integer(3));
        }
        tEntry->mStatus = pRow.text(4);
        tEntry->mInstallReport = text(pRow.bytes(6));
        return tEntry;
    }

private:
    template <typename Key, typename Value, typename Make>
    static const Value& cached(QHash<Key, Value>& pCache, const Key& pKey, Make pMake)
    {
        const auto tFound = pCache.constFind(pKey);
        if (tFound != pCache.cend()) {
            return *tFound;
        }
        if (pCache.size() >= 4096) {
            pCache.clear();
        }
        return *pCache.insert(pKey, pMake(pKey));
    }

    QDateTime date(qint64 pMs)
    {
        return cached(mDates, pMs, [](qint64 pKey) { return QDateTime::fromMSecsSinceEpoch(pKey); });
    }
    LangString text(const QByteArray& pJson)
    {
        return pJson.isEmpty() ? LangString() : cached(mTexts, pJson, fromJsonText);
    }
    Version version(const QByteArray& pText)
    {
        return cached(mVersions, pText,
                      [](const QByteArray& pKey) { return Version::fromString(QString::fromUtf8(pKey)); });
    }

    QHash<qint64, QDateTime> mDates;
    QHash<QByteArray, LangString> mTexts;
    QHash<QByteArray, Version> mVersions;
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
    mErrorText = QStringLiteral("the log has the unknown format %1").arg(tVersion);
    return false;
}

bool InstallLogStore::makeSchema()
{
    return mDatabase.schemaVersion() != 0 ||
           (mDatabase.execute(sSchema) && mDatabase.setSchemaVersion(sSchemaVersion));
}

bool InstallLogStore::openForWriting(const QString& pPath)
{
    if (!mDatabase.open(pPath, Database::Mode::ReadWrite)) {
        return fail();
    }
    ::chmod(QFile::encodeName(pPath).constData(), 0644);
    return mDatabase.transaction([this] { return makeSchema(); }) ? checkVersion() : fail();
}

bool InstallLogStore::openForReading(const QString& pPath)
{
    if (!QFile::exists(pPath)) {
        mDatabase.close();
        return true;
    }
    return mDatabase.open(pPath, Database::Mode::ReadOnly) ? checkVersion() : fail();
}

bool InstallLogStore::append(const QString& pRunId, const QDateTime& pDate, const QList<Record>& pRecords)
{
    const bool tOk = mDatabase.transaction([&] {
        {
            Statement tKnown(mDatabase, "SELECT 1 FROM run WHERE key = ?");
            if (tKnown.bind(1, pRunId).step()) {
                return true;
            }
        }
        const qint64 tDate = pDate.toMSecsSinceEpoch();
        Statement tRun(mDatabase, "INSERT INTO run (key, date) VALUES (?, ?)");
        if (!tRun.bind(1, pRunId).bind(2, tDate).run()) {
            return false;
        }
        Statement tInsert(
            mDatabase,
            "INSERT INTO entry (date, package, parent, version, version_date, status, title, report)"
            " VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
        return std::all_of(pRecords.cbegin(), pRecords.cend(), [&](const Record& pRecord) {
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
    const QByteArray tSql =
        QByteArray("SELECT ") + RowReader::sColumns + " FROM entry WHERE date BETWEEN ? AND ?" +
        (pTopLevelOnly ? " AND parent IS NULL" : "") + " ORDER BY date DESC, id DESC LIMIT ?";
    Statement tQuery(mDatabase, tSql.constData());
    tQuery.bind(1, pFrom.isValid() ? pFrom.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min())
        .bind(2, pTo.isValid() ? pTo.toMSecsSinceEpoch() : std::numeric_limits<qint64>::max())
        .bind(3, pMaxCount);
    RowReader tReader;
    QList<GRef2<InstLogEntry>> tFound;
    while (tQuery.step()) {
        tFound.append(GRef2<InstLogEntry>(tReader.entryOf(tQuery)));
    }
    if (!tQuery.isOk()) {
        return fail();
    }
    std::reverse(tFound.begin(), tFound.end());
    pEntries->append(std::move(tFound));
    return true;
}

} // namespace tarn::vkcore
