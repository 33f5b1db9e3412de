#include "sqlite/Database.h"

#include <sqlite3.h>

#include <QtCore/QFile>

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace tarn::vkcore {

namespace {

constexpr int sBusyTimeoutMs = 5000;

// SQLite would make the file with the umask's rights; a file of passwords must never be open to others. A
// file that is there is not opened: closing it would end the locks that this process has on it through other
// connections.
bool makePrivateFile(const QByteArray& pPath)
{
    const int tFd = ::open(pPath.constData(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (tFd >= 0) {
        ::close(tFd);
        return true;
    }
    struct stat tStat
    {
    };
    if (errno != EEXIST || ::lstat(pPath.constData(), &tStat) != 0) {
        return false;
    }
    errno = S_ISLNK(tStat.st_mode) ? ELOOP : EEXIST;
    return !S_ISLNK(tStat.st_mode);
}

} // namespace

Database::~Database()
{
    close();
}

bool Database::open(const QString& pPath, Mode pMode)
{
    close();
    const QByteArray tPath = QFile::encodeName(pPath);
    const bool tWrite = pMode == Mode::ReadWrite;
    if (tWrite && !makePrivateFile(tPath)) {
        mErrorText = QStringLiteral("%1: %2").arg(pPath, qt_error_string(errno));
        return false;
    }
    const int tFlags = (tWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(tPath.constData(), &mHandle, tFlags, nullptr) != SQLITE_OK) {
        fail();
        const QString tReason = mErrorText;
        close();
        mErrorText = tReason;
        return false;
    }
    // Without permission to write SQLite opens for reading only.
    if (tWrite && sqlite3_db_readonly(mHandle, "main") == 1) {
        close();
        mErrorText = QStringLiteral("%1: %2").arg(pPath, qt_error_string(EACCES));
        return false;
    }
    sqlite3_extended_result_codes(mHandle, 1);
    sqlite3_busy_timeout(mHandle, sBusyTimeoutMs);
    if (tWrite) {
        // Otherwise the end of a transaction, the removal of its journal, could be lost with the power. A
        // file that is no database fails here too, and tells so at its first use.
        sqlite3_exec(mHandle, "PRAGMA synchronous = EXTRA", nullptr, nullptr, nullptr);
    }
    return true;
}

void Database::close()
{
    sqlite3_close_v2(mHandle);
    mHandle = nullptr;
    mErrorText.clear();
    mDamaged = false;
}

bool Database::fail()
{
    const int tExtended = sqlite3_extended_errcode(mHandle);
    const int tCode = tExtended & 0xff;
    mDamaged = tCode == SQLITE_CORRUPT || tCode == SQLITE_NOTADB;
    mErrorText = tExtended == SQLITE_READONLY_ROLLBACK
                     ? QStringLiteral("a change was cut short and has to be undone by who may write the file")
                     : QString::fromUtf8(sqlite3_errmsg(mHandle));
    return false;
}

bool Database::execute(const char* pSql)
{
    return sqlite3_exec(mHandle, pSql, nullptr, nullptr, nullptr) == SQLITE_OK || fail();
}

bool Database::transaction(const std::function<bool()>& pBody)
{
    if (!execute("BEGIN IMMEDIATE")) {
        return false;
    }
    if (pBody() && execute("COMMIT")) {
        return true;
    }
    const QString tReason = mErrorText;
    const bool tDamaged = mDamaged;
    if (sqlite3_get_autocommit(mHandle) == 0) {
        execute("ROLLBACK");
    }
    mErrorText = tReason;
    mDamaged = tDamaged;
    return false;
}

int Database::schemaVersion()
{
    Statement tQuery(*this, "PRAGMA user_version");
    return tQuery.step() ? static_cast<int>(tQuery.integer(0)) : -1;
}

bool Database::setSchemaVersion(int pVersion)
{
    return execute(QByteArray("PRAGMA user_version = " + QByteArray::number(pVersion)).constData());
}

bool Database::isHealthy()
{
    Statement tQuery(*this, "PRAGMA quick_check(1)");
    return tQuery.step() && tQuery.text(0) == QLatin1String("ok");
}

Statement::Statement(Database& pDatabase, const char* pSql) : mDatabase(pDatabase)
{
    mOk = sqlite3_prepare_v2(mDatabase.mHandle, pSql, -1, &mStatement, nullptr) == SQLITE_OK;
    if (!mOk) {
        mDatabase.fail();
    }
}

Statement::~Statement()
{
    sqlite3_finalize(mStatement);
}

Statement& Statement::bind(int pIndex, qint64 pValue)
{
    sqlite3_bind_int64(mStatement, pIndex, pValue);
    return *this;
}

Statement& Statement::bind(int pIndex, const QString& pValue)
{
    if (pValue.isNull()) {
        sqlite3_bind_null(mStatement, pIndex);
        return *this;
    }
    const QByteArray tUtf8 = pValue.toUtf8();
    sqlite3_bind_text64(mStatement, pIndex, tUtf8.constData(), static_cast<sqlite3_uint64>(tUtf8.size()),
                        SQLITE_TRANSIENT, SQLITE_UTF8);
    return *this;
}

Statement& Statement::bind(int pIndex, const QByteArray& pValue)
{
    sqlite3_bind_blob64(mStatement, pIndex, pValue.constData(), static_cast<sqlite3_uint64>(pValue.size()),
                        SQLITE_TRANSIENT);
    return *this;
}

bool Statement::step()
{
    if (!mOk) {
        return false;
    }
    const int tResult = sqlite3_step(mStatement);
    if (tResult == SQLITE_ROW) {
        return true;
    }
    if (tResult != SQLITE_DONE) {
        mOk = false;
        mDatabase.fail();
    }
    return false;
}

bool Statement::run()
{
    step();
    const bool tOk = mOk;
    reset();
    return tOk;
}

void Statement::reset()
{
    sqlite3_reset(mStatement);
    sqlite3_clear_bindings(mStatement);
}

bool Statement::isNull(int pColumn) const
{
    return sqlite3_column_type(mStatement, pColumn) == SQLITE_NULL;
}

qint64 Statement::integer(int pColumn) const
{
    return sqlite3_column_int64(mStatement, pColumn);
}

QString Statement::text(int pColumn) const
{
    const auto* tText = reinterpret_cast<const char*>(sqlite3_column_text(mStatement, pColumn));
    return tText == nullptr ? QString() : QString::fromUtf8(tText, sqlite3_column_bytes(mStatement, pColumn));
}

QByteArray Statement::bytes(int pColumn) const
{
    const auto* tBytes = static_cast<const char*>(sqlite3_column_blob(mStatement, pColumn));
    return {tBytes, sqlite3_column_bytes(mStatement, pColumn)};
}

} // namespace tarn::vkcore
