#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

#include <functional>

// A child process with its three streams on pipes, or on its own terminal.
class Program
{
public:
    using Environment = QMap<QByteArray, QByteArray>; // the whole of it

    enum class Console
    {
        Pipes,
        Terminal, // all three streams; line ends are not changed
    };

    struct Result
    {
        QByteArray mOut; // of a terminal: everything that it shows
        QByteArray mErr;
        int mStatus = -1; // -1 if it was ended by a signal
        int mSignal = 0;
        bool mTimedOut = false;
        bool mEchoes = false; // whether it left a terminal with echo
    };

    Program(const QString& pPath, const QList<QByteArray>& pArguments, const Environment& pEnvironment,
            Console pConsole = Console::Pipes);
    ~Program(); // kills it if it still runs
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    int pid() const { return mPid; }
    void signal(int pSignal) const;
    void write(const QByteArray& pBytes) const;
    void closeInput();
    // Whether the terminal echoes input.
    bool echoes() const;

    // Reads until standard output holds the text pCount times. False if it ends or times out before.
    bool waitForOutput(const QByteArray& pText, int pCount = 1, int pTimeoutMs = 20000);
    const QByteArray& output() const { return mResult.mOut; }
    // Ends the input and reads to the end.
    Result wait(int pTimeoutMs = 30000);

private:
    bool readUntil(const std::function<bool()>& pDone, int pTimeoutMs);

    int mPid = -1;
    int mIn = -1;
    int mOut = -1;
    int mErr = -1;
    bool mTerminal = false;
    Result mResult;
};
