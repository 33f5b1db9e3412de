#pragma once

#include "os/Descriptor.h"
#include "os/ProcessList.h"

#include <QtCore/QByteArray>

#include <mutex>

class QDeadlineTimer;

namespace tarn::os {

struct ProcessQuestion;

// Asks the program vkprocesses, which may look into the processes of all users, because this process may not.
// Nothing that it answers is believed beyond what was asked, and it is waited for only so long. Calls from
// several threads are serialized.
class HelpedProcessList : public ProcessList
{
public:
    // Connects to this socket when there is a question.
    explicit HelpedProcessList(const QString& pSocket);
    // How long an answer may take.
    struct Patience
    {
        int mRunningMs = 10 * 1000;
        int mInUseMs = 30 * 1000; // it reads all names in the folders
    };
    // The connection to one of its own.
    HelpedProcessList(Descriptor pConnection, const Patience& pPatience);

    Result<QList<Process>> running(const ProgramSearch& pSearch) override;
    Result<QStringList> inUse(const QStringList& pFolders) override;
    int openProcess(pid_t pPid) override { return realProcessList().openProcess(pPid); }

private:
    Failure connect();
    Result<QByteArray> ask(const ProcessQuestion& pQuestion, int pMilliseconds);
    Result<QByteArray> exchange(const QByteArray& pQuestion, int pMilliseconds);

    QByteArray mSocket; // empty: mConnection is all there is
    const Patience mPatience;
    std::mutex mMutex;
    Descriptor mConnection;
};

} // namespace tarn::os
