#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <functional>

struct sqlite3;
struct sqlite3_stmt;

namespace tarn::vkcore {

class Statement;

// An open SQLite database. Failures are false, with errorText() set; isDamaged() tells a file that is no
// healthy database from all others (no space, no permission, busy).
class Database
{
public:
    Database() = default;
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    enum class Mode
    {
        ReadOnly,  // fails where the file does not exist
        ReadWrite, // makes the file, with mode 0600 under any umask, and waits for other writers up to 5 s
    };

    bool open(const QString& pPath, Mode pMode);
    void close();
    bool isOpen() const { return mHandle != nullptr; }

    // One or more statements without values.
    bool execute(const char* pSql);
    // Runs pBody between BEGIN IMMEDIATE and COMMIT; rolls back and returns false if pBody does, or
    // if the commit fails. Durable when it returns true.
    bool transaction(const std::function<bool()>& pBody);
    // PRAGMA user_version: 0 in a new file; -1 if the file can't be read.
    int schemaVersion();
    bool setSchemaVersion(int pVersion);
    // PRAGMA quick_check.
    bool isHealthy();

    const QString& errorText() const { return mErrorText; }
    bool isDamaged() const { return mDamaged; }

private:
    friend class Statement;
    bool fail();

    sqlite3* mHandle = nullptr;
    QString mErrorText;
    bool mDamaged = false;
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

    // True for a row; false at the end and on failure, which isOk() tells apart.
    bool step();
    // For a statement without rows: steps once and resets, so that it can be bound anew.
    bool run();
    void reset();
    bool isOk() const { return mOk; }

    bool isNull(int pColumn) const;
    qint64 integer(int pColumn) const;
    QString text(int pColumn) const;
    QByteArray bytes(int pColumn) const;

private:
    Database& mDatabase;
    sqlite3_stmt* mStatement = nullptr;
    bool mOk = true;
};

} // namespace tarn::vkcore
