#include "sqlite/Database.h"

#include "sqlite/LockHolder.h"

#include <sqlite3.h>

#include <QtCore/QDateTime>
#include <QtCore/QFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr int sBusyTimeoutMs = 5000;
constexpr int sLookAgainMs = 10;
// Files of a database that must be moved with it, or they would be applied to the next one.
constexpr const char* sCompanions[] = {"-wal", "-journal", "-shm"};

// SQLite would create the file with the mode of the umask, but a file with passwords must never be open to
// others. An existing file is not opened here, because closing it would release this process's locks on it.
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

// What belongs to another user could be a pipe, which would never open.
bool isFile(const QByteArray& pPath)
{
    struct stat tStat
    {
    };
    return ::stat(pPath.constData(), &tStat) != 0 || S_ISREG(tStat.st_mode);
}

// To read a database with a write-ahead log takes files beside it and memory shared with its owner. No
// database that is opened for reading has one.
void refuseWriteAheadLog(sqlite3* pDatabase)
{
    sqlite3_file* tFile = nullptr;
    if (sqlite3_file_control(pDatabase, "main", SQLITE_FCNTL_FILE_POINTER, &tFile) != SQLITE_OK ||
        tFile->pMethods == nullptr || tFile->pMethods->iVersion < 2 || tFile->pMethods->xShmMap == nullptr) {
        return;
    }
    // Only one kind of file can share memory, so one copy serves all.
    static const sqlite3_io_methods sMethods = [](sqlite3_io_methods pMethods) {
        pMethods.iVersion = 1;
        return pMethods;
    }(*tFile->pMethods);
    tFile->pMethods = &sMethods;
}

bool exists(const QByteArray& pPath)
{
    struct stat tStat
    {
    };
    return ::lstat(pPath.constData(), &tStat) == 0;
}

bool isTaken(const QByteArray& pPath)
{
    return exists(pPath) || std::any_of(std::begin(sCompanions), std::end(sCompanions),
                                        [&](const char* pSuffix) { return exists(pPath + pSuffix); });
}

QByteArray freeName(const QByteArray& pPath)
{
    const QByteArray tBase =
        pPath + ".damaged-" + QDateTime::currentDateTime().toString(u"yyyyMMddhhmmss"_s).toLatin1();
    QByteArray tName = tBase;
    for (int i = 2; isTaken(tName); ++i) {
        tName = tBase + '-' + QByteArray::number(i);
    }
    return tName;
}

bool move(const QByteArray& pFrom, const QByteArray& pTo)
{
    return std::rename(pFrom.constData(), pTo.constData()) == 0;
}

} // namespace

Database::~Database()
{
    close();
}

bool Database::open(const QString& pPath, Mode pMode)
{
    close();
    mPath = pPath;
    const QByteArray tPath = QFile::encodeName(pPath);
    const bool tWrite = pMode == Mode::ReadWrite;
    if (tWrite && !makePrivateFile(tPath)) {
        return refuse(u"%1: %2"_s.arg(pPath, qt_error_string(errno)));
    }
    if (!isFile(tPath) || !isFile(tPath + "-journal")) {
        return refuse(u"%1: it or its journal is not a file"_s.arg(pPath));
    }
    const int tFlags = (tWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(tPath.constData(), &mHandle, tFlags, nullptr) != SQLITE_OK) {
        return refuseToOpen();
    }
    if (!tWrite) {
        refuseWriteAheadLog(mHandle);
    }
    // Without permission to write SQLite opens for reading only.
    if (tWrite && sqlite3_db_readonly(mHandle, "main") == 1) {
        close();
        return refuse(u"%1: %2"_s.arg(pPath, qt_error_string(EACCES)));
    }
    sqlite3_extended_result_codes(mHandle, 1);
    sqlite3_busy_handler(mHandle, &Database::onBusy, this);
    // Otherwise a power failure could undo the removal of the journal, which ends a transaction. A confined
    // thread has no folder for temporary files.
    return !tWrite || execute("PRAGMA synchronous = EXTRA; PRAGMA temp_store = MEMORY") || refuseToOpen();
}

void Database::close()
{
    sqlite3_close_v2(mHandle);
    mHandle = nullptr;
    mErrorText.clear();
    mHealth = Health::Sound;
}

bool Database::refuseToOpen()
{
    fail();
    const QString tReason = mErrorText;
    const Health tHealth = mHealth;
    close();
    mErrorText = tReason;
    mHealth = tHealth;
    return false;
}

int Database::onBusy(void* pSelf, int pTimes)
{
    const auto* tSelf = static_cast<const Database*>(pSelf);
    const bool tGoOn =
        tSelf->mDeadline ? !tSelf->mDeadline->hasExpired() : pTimes < sBusyTimeoutMs / sLookAgainMs;
    if (tGoOn) {
        sqlite3_sleep(sLookAgainMs);
    }
    return tGoOn ? 1 : 0;
}

bool Database::fail()
{
    const int tCode = sqlite3_extended_errcode(mHandle);
    const int tErrno = (tCode & 0xff) == SQLITE_IOERR ? sqlite3_system_errno(mHandle) : 0;
    const QString tText = QString::fromUtf8(sqlite3_errmsg(mHandle));
    return fail(tCode, tErrno == 0 ? tText : u"%1 (%2)"_s.arg(tText, qt_error_string(tErrno)));
}

bool Database::fail(int pExtendedCode, const QString& pText)
{
    const int tCode = pExtendedCode & 0xff;
    mHealth = tCode == SQLITE_CORRUPT || tCode == SQLITE_NOTADB ? Health::Corrupt : Health::Unknown;
    mErrorText = pText;
    if (pExtendedCode == SQLITE_READONLY_ROLLBACK) {
        mErrorText = u"a change was cut short and has to be undone by who may write the file"_s;
    } else if (tCode == SQLITE_BUSY) {
        mErrorText = u"it is locked by %1"_s.arg(lockHolder(mPath));
    }
    return false;
}

bool Database::refuse(const QString& pReason)
{
    mHealth = Health::Unknown;
    mErrorText = pReason;
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
    const Health tHealth = mHealth;
    if (sqlite3_get_autocommit(mHandle) == 0) {
        execute("ROLLBACK");
    }
    mErrorText = tReason;
    mHealth = tHealth;
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

bool Database::migrate(std::span<const char* const> pSteps)
{
    const int tLast = static_cast<int>(pSteps.size());
    const int tFirst = schemaVersion();
    if (tFirst > tLast) {
        return refuse(u"it was written by a newer version of this program (its format is %1, this "
                      "version knows up to %2)"_s.arg(tFirst)
                          .arg(tLast));
    }
    if (tFirst == 0) {
        Statement tTables(*this, "SELECT name FROM sqlite_schema LIMIT 1");
        if (tTables.step()) {
            return refuse(u"it has tables but no version of them (user_version is 0), so it is not "
                          "from this program, or it is a copy that lost its version"_s);
        }
        if (!tTables.isOk()) {
            return false;
        }
    }
    for (int tVersion = tFirst; tVersion >= 0 && tVersion < tLast; ++tVersion) {
        const auto tStep = [&] {
            return execute(pSteps[static_cast<size_t>(tVersion)]) && setSchemaVersion(tVersion + 1);
        };
        if (!transaction(tStep)) {
            return false;
        }
    }
    return tFirst >= 0;
}

bool Database::isWhole()
{
    Statement tQuery(*this, "PRAGMA quick_check(1)");
    if (!tQuery.step()) {
        return false;
    }
    const QString tFinding = tQuery.text(0).section(u'\n', -1);
    return tFinding == "ok"_L1 || fail(SQLITE_CORRUPT, tFinding);
}

bool Database::copyTo(Database* pCopy)
{
    if (sqlite3_open(":memory:", &pCopy->mHandle) != SQLITE_OK) {
        return pCopy->fail();
    }
    sqlite3_backup* tBackup = sqlite3_backup_init(pCopy->mHandle, "main", mHandle, "main");
    if (tBackup == nullptr) {
        return pCopy->fail();
    }
    sqlite3_backup_step(tBackup, -1);
    return sqlite3_backup_finish(tBackup) == SQLITE_OK || pCopy->fail();
}

Database::Health Database::check()
{
    return isWhole() ? Health::Sound : mHealth;
}

// SQLite also reports damage if the system can't read a page at the moment. In a copy in memory, damage can
// only be in the data.
Database::Health Database::lookAgain() const
{
    Database tFile;
    Database tCopy;
    const QByteArray tPath = QFile::encodeName(mPath);
    if (sqlite3_open_v2(tPath.constData(), &tFile.mHandle, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
        return Health::Unknown;
    }
    return tFile.copyTo(&tCopy) ? tCopy.check() : tCopy.mHealth;
}

QString Database::setAside()
{
    if (mHealth != Health::Corrupt || lookAgain() != Health::Corrupt) {
        refuse(u"it could not be read (%1), and no damage was found in it"_s.arg(mErrorText));
        return {};
    }
    close();
    const QByteArray tFrom = QFile::encodeName(mPath);
    const QByteArray tTo = freeName(tFrom);
    bool tMoved = true;
    for (const char* tSuffix : sCompanions) {
        tMoved = tMoved && (move(tFrom + tSuffix, tTo + tSuffix) || errno == ENOENT);
    }
    if (tMoved && move(tFrom, tTo)) {
        return QFile::decodeName(tTo);
    }
    refuse(u"it is damaged and can't be set aside: %1"_s.arg(qt_error_string(errno)));
    return {};
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

// A value that could not be bound would go into the file as NULL.
void Statement::noteBound(int pResult)
{
    if (mOk && pResult != SQLITE_OK) {
        mOk = mDatabase.fail(pResult, QString::fromUtf8(sqlite3_errstr(pResult)));
    }
}

Statement& Statement::bind(int pIndex, qint64 pValue)
{
    noteBound(sqlite3_bind_int64(mStatement, pIndex, pValue));
    return *this;
}

Statement& Statement::bind(int pIndex, const QString& pValue)
{
    if (pValue.isNull()) {
        noteBound(sqlite3_bind_null(mStatement, pIndex));
        return *this;
    }
    const QByteArray tUtf8 = pValue.toUtf8();
    noteBound(sqlite3_bind_text64(mStatement, pIndex, tUtf8.constData(),
                                  static_cast<sqlite3_uint64>(tUtf8.size()), SQLITE_TRANSIENT, SQLITE_UTF8));
    return *this;
}

Statement& Statement::bind(int pIndex, const QByteArray& pValue)
{
    noteBound(sqlite3_bind_blob64(mStatement, pIndex, pValue.constData(),
                                  static_cast<sqlite3_uint64>(pValue.size()), SQLITE_TRANSIENT));
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

// The statement is null if it could not be prepared; only this function of SQLite does not accept that.
void Statement::reset()
{
    sqlite3_reset(mStatement);
    if (mStatement != nullptr) {
        sqlite3_clear_bindings(mStatement);
    }
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
    const QByteArray tBytes = rawBytes(pColumn);
    return {tBytes.constData(), tBytes.size()};
}

QByteArray Statement::rawBytes(int pColumn) const
{
    const auto* tBytes = static_cast<const char*>(sqlite3_column_blob(mStatement, pColumn));
    return QByteArray::fromRawData(tBytes, sqlite3_column_bytes(mStatement, pColumn));
}

} // namespace tarn::vkcore
