#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QDeadlineTimer>
#include <QtCore/QString>

#include <functional>
#include <optional>
#include <span>

struct sqlite3;
struct sqlite3_stmt;

namespace tarn::vkcore {

class Statement;

// An open SQLite database. Failures return false and set errorText(); health() classifies the last failure.
class Database
{
public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    enum class Mode
    {
        ReadOnly,  // fails if the file does not exist
        ReadWrite, // creates the file with mode 0600 under any umask
    };
    enum class Health
    {
        Sound,   // no failure
        Corrupt, // SQLITE_CORRUPT or SQLITE_NOTADB; SQLite also reports some disk errors so
        Unknown, // something else failed (no memory, no space, no permission, a lock): the file may be sound
    };

    bool open(const QString& pPath, Mode pMode);
    void close();
    bool isOpen() const { return mHandle != nullptr; }
    // Statements wait for the locks of others for up to 5 s each; from here on, also for a file that is
    // opened later, for this long in total.
    void waitInAll(int pMilliseconds) { mDeadline.emplace(pMilliseconds); }

    // One or more statements without values.
    bool execute(const char* pSql);
    // Runs pBody between BEGIN IMMEDIATE and COMMIT; rolls back and returns false if pBody does, or
    // if the commit fails. Durable when it returns true.
    bool transaction(const std::function<bool()>& pBody);
    // PRAGMA user_version: 0 in a new file; -1 if the file can't be read.
    int schemaVersion();
    bool setSchemaVersion(int pVersion);
    // Migrates the tables with pSteps: step i converts version i to i + 1, each in its own transaction. A
    // file of a newer version is rejected unchanged, and so is one with tables and version 0: no step creates
    // such a file, so it is foreign, or a copy that lost its version.
    bool migrate(std::span<const char* const> pSteps);
    // Reads all of the file: PRAGMA quick_check.
    Health check();

    // Of the file, according to the last failure.
    Health health() const { return mHealth; }
    const QString& errorText() const { return mErrorText; }

    // Checks a Corrupt file again. If its data is damaged, and not only unreadable, the file is closed and
    // renamed, with its journals. Returns the new name; null, with errorText(), if the file stays.
    QString setAside();

private:
    friend class Statement;
    static int onBusy(void* pSelf, int pTimes);
    bool fail();
    bool fail(int pExtendedCode, const QString& pText);
    bool refuse(const QString& pReason);
    bool refuseToOpen();
    bool isWhole();
    Health lookAgain() const;
    bool copyTo(Database* pCopy);

    sqlite3* mHandle = nullptr;
    QString mPath;
    QString mErrorText;
    Health mHealth = Health::Sound;
    std::optional<QDeadlineTimer> mDeadline;
};

// A prepared statement; values are bound by position from 1 and read by column from 0. Texts are UTF-8;
// a null QString is NULL both ways.
class Statement
{
public:
    Statement(Database& pDatabase, const char* pSql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    Statement& bind(int pIndex, qint64 pValue);
    Statement& bind(int pIndex, const QString& pValue);
    Statement& bind(int pIndex, const QByteArray& pValue);

    // True for a row; false at the end and on failure, see isOk().
    bool step();
    // For a statement without rows: steps once and resets, so that it can be bound again.
    bool run();
    void reset();
    bool isOk() const { return mOk; }

    bool isNull(int pColumn) const;
    qint64 integer(int pColumn) const;
    QString text(int pColumn) const;
    QByteArray bytes(int pColumn) const;
    // Not copied: valid until the next step.
    QByteArray rawBytes(int pColumn) const;

private:
    void noteBound(int pResult);

    Database& mDatabase;
    sqlite3_stmt* mStatement = nullptr;
    bool mOk = true;
};

} // namespace tarn::vkcore
