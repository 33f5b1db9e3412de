#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {

class AbortFlag;
class FreeThread;

// A program that says by its exit status whether something works.
struct CheckProgram
{
    QString mProgram;             // absolute path
    QString mFolder;              // where it works
    QByteArrayList mVariables;    // "NAME=value", besides PATH, LANG and TMPDIR
    int mSeconds = 0;             // after this time it is killed
    bool mMayChangeFiles = false; // else the kernel lets it write only in its own temporary folder
};

struct CheckOutcome
{
    bool mPassed = false;
    bool mIsAborted = false;
    QString mReason = {};    // why it has not passed, "ended with status 3"
    QByteArray mOutput = {}; // the last 4 KiB of what it wrote to both streams
    // It was not even begun, because this machine lacks memory, processes, descriptors or room on its disk.
    bool mIsMachinesFault = false;
};

class CheckRunner
{
public:
    virtual ~CheckRunner() = default;

    // Those programs of a folder that may be run, as absolute paths in the order of their names, which have
    // only letters, digits, '-' and '_'. Others than root and this process's user may not be able to change
    // them or the folder: what is wrong is left out and named in *pWarnings. A missing folder has none.
    virtual QStringList programs(const QString& pFolder, QStringList* pWarnings) = 0;

    // Runs the program in a session of its own, with no input and no descriptors of this process. When it
    // ends, or its time does, or pAbort is set, or this process dies, everything that it has started is
    // killed.
    virtual CheckOutcome run(const CheckProgram& pProgram, const AbortFlag& pAbort) = 0;
};

// The real one. It has no state and may be used from any thread.
CheckRunner& realCheckRunner();

// Uses another one on a free thread, for a confined thread, whose children would be confined, too.
class FreeCheckRunner : public CheckRunner
{
public:
    // Both must outlive this object.
    FreeCheckRunner(CheckRunner& pRunner, FreeThread& pThread) : mRunner(pRunner), mThread(pThread) {}

    QStringList programs(const QString& pFolder, QStringList* pWarnings) override;
    CheckOutcome run(const CheckProgram& pProgram, const AbortFlag& pAbort) override;

private:
    CheckRunner& mRunner;
    FreeThread& mThread;
};

} // namespace tarn::os
