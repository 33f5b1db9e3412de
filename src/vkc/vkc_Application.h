#pragma once

#include "OutputFile.h"
#include "program/ClientApplication.h"

#include <vkcore/GRef.h>
#include <vkcore/IPCClient.h>
#include <vkcore/MonitoringSettings.h>
#include <vkcore/ServerList.h>
#include <vkcore/Types.h>

#include <QtCore/QDateTime>
#include <QtCore/QEventLoop>
#include <QtCore/QList>
#include <QtCore/QMutex>
#include <QtCore/QString>
#include <QtCore/QTextStream>
#include <QtCore/QTimer>
#include <QtCore/QUrl>
#include <QtCore/QWaitCondition>

#include <unistd.h>

#include <optional>

namespace option {
class Option;
class Parser;
struct Descriptor;
struct Stats;
} // namespace option

namespace tarn::vkc {

// The source name for logAssertFailed, for the whole class.
inline constexpr char sSourcePath[] = "src/vkc/vkc_Application";

// The whole program: the common parts, and one cmd... method per command, which returns the exit status. The
// methods are in one source file per subject, named in the comments below.
class VKCApplication : public ClientApplication
{
    Q_OBJECT

public:
    VKCApplication(const QList<QString>& pPrefixes, int pLogLevels);
    ~VKCApplication() override;

    bool init() override;
    void fatalError(const QString& pText) override;
    void finalize() override;

    void exitMainloop(int pStatus);
    // Blocks until finalize has run.
    void waitForFinished();

    // The format of dates in output, independent of the locale; empty for an invalid date.
    static QString dateTimeText(const QDateTime& pDate);

public Q_SLOTS:
    void run();
    void cancel(bool pForceCancel = false);

private Q_SLOTS:
    void updateProgress();
    void checkCanceled();
    void onMonitorServiceStatusChanged(tarn::vkcore::ServiceStatus pStatus);
    void onMonitorServiceActivityChanged(tarn::vkcore::ServiceActivity pActivity);
    void onMonitorServiceNotificationReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void onMonitorServiceErrorReceived(int pMsgType, const QString& pText, const QString& pDetails);
    void onMonitorQuitRequestReceived();
    void onMonitorDisconnected();

private:
    friend class CommandTableReader; // generates the shell completions

    struct CommandEntry
    {
        const char* name;
        const option::Descriptor* options;
        int (VKCApplication::*handler)();
    };
    struct LanguageGroup;

    // Run.cpp
    void parseOptions(int pArgc, char** pArgv);
    int runHandler(int (VKCApplication::*pHandler)(), bool pNoCommand);

    // Console.cpp
    void writeStdOut(const QString& pText, bool pNewline, bool pFlush);
    void writeStdErr(const QString& pText, bool pNewline, bool pFlush);
    // A line to standard output.
    void printLine(const QString& pText);
    // A line to standard error; false, the result of a step that fails with it.
    bool printError(const QString& pText);
    // The same, with the exit status of a command that fails.
    int fail(const QString& pText);
    void clearCurrentLine();
    void writeMsgType(int pMsgType);
    void writeProgress(const QString& pText);
    QString readPassword(const QString& pPrompt);
    static QString yesNo(bool pValue);

    // cmdline/Usage.cpp
    const option::Descriptor* getUsageOptDescriptor();
    void printUsage();

    // cmdline/OptionAccess.cpp
    bool optIndexValid(unsigned long pOptIndex);
    bool optPassed(unsigned long pOptIndex);
    bool optEnabled(unsigned long pOptIndex, bool pDefault);
    QString optArg(unsigned long pOptIndex, const QString& pDefault);
    QList<QString> optArgs(unsigned long pOptIndex);
    bool optHasArg(unsigned long pOptIndex);
    // The option's value, or the input at the prompt if it was given without one.
    QString optPassword(unsigned long pOptIndex, const QString& pPrompt);
    // The command line has only common options.
    bool noOwnOptions() const;

    // service/Connection.cpp
    bool connectToServer(bool pStartService);
    // Connects for a command that changes settings: false, with the reason on standard error, if there is no
    // connection or the service is busy.
    bool connectForChange();

    void cleanupServiceWorker();

    // service/Monitor.cpp
    bool connectMonitor();
    void writeServiceMessage(int pMsgType, const QString& pText, const QString& pDetails);
    QString serviceStatusText();
    QString serviceProgressText();

    // commands/Settings.cpp
    int cmdShowSettings();
    bool showDefaultServer();
    bool showProxy();
    bool showDataDirectory();
    void showLanguages(bool pApp, bool pData);
    void showConfigVars();
    int cmdUpdateSettings();
    bool updateDefaultServer();
    bool updateProxy();
    bool updateDataDirectory();
    // A value ends the command with that status.
    std::optional<int> updateLanguage(const LanguageGroup& pGroup);
    bool updateConfigVars();

    // commands/Schedule.cpp
    int cmdShowScheduleSettings();
    int cmdUpdateScheduleSettings();
    bool readMode(vkcore::Scheduler::AutoUpdateMode* pMode);
    bool readInterval(vkcore::Scheduler::AutoUpdateMode pMode, int* pFlags, int* pCount,
                      vkcore::Scheduler::PeriodUnit* pUnit);
    bool readNextUpdate(QDateTime* pNextCheck, int pCount, vkcore::Scheduler::PeriodUnit pUnit);

    // commands/Monitoring.cpp
    int cmdShowMonitoringSettings();
    int cmdUpdateMonitoringSettings();
    bool applyMonitoringOptions(vkcore::MonitoringSettings* pSettings);

    // commands/Servers.cpp
    int cmdListServers();
    int cmdAddServer();
    int cmdUpdateServer();
    int cmdRemoveServer();
    int addOrChangeServer(int pNumber, const QString& pName);
    bool applyServerOptions(vkcore::Server* pServer);
    int findServerByName(vkcore::ServerList* pServerList, const QString& pName);
    // Null, with the reason on standard error, if the service does not deliver it.
    vkcore::GRef<vkcore::ServerList> fetchServerList();
    // The address rule: false, with the reason on standard error, if it is not an https or file address.
    bool readAddress(const QString& pTyped, QString* pUri);
    // A file address as a path, any other unchanged.
    static QString addressText(const QUrl& pUrl, const QString& pStored);

    // commands/Update.cpp
    int cmdServiceStatus();
    int cmdUpdate();
    int reportUpdateResult();
    bool safeToCancelUpate();
    bool abortUpdate();

    // commands/InstallLog.cpp
    int cmdInstallLog();
    static QString getInstallLogStatusText(const QString& pStatus);

    // cmdline/CommandTables.cpp; a row of nulls ends each table.
    static const CommandEntry sCommands[];
    static option::Descriptor sOptsNone[]; // its last row is for the list of commands

    OutputFile mOutput{STDOUT_FILENO};
    OutputFile mErrors{STDERR_FILENO};
    QTextStream mStdIn;
    QTextStream mStdOut;
    QTextStream mStdErr;
    option::Stats* mOptStats = nullptr;           // owned
    option::Parser* mOptParser = nullptr;         // owned
    const option::Descriptor* mOptDesc = nullptr; // the table in force
    option::Option* mOptions = nullptr;           // owned, one an index
    option::Option* mOptBuffer = nullptr;         // owned, one an occurrence
    int mBaseOptCount = 0;                        // parsed options that belong to the frame
    vkcore::IPCClient* mClient = nullptr;         // the connection of the command
    vkcore::IPCClient* mMonitorClient = nullptr;  // the connection in monitor mode
    bool mRunning = true;                         // until finalize has run
    QMutex mRunMutex;                             // guards mRunning
    QWaitCondition mRunCondition;
    bool mUpdateRunning = false;
    vkcore::ServiceActivity mServiceActivity = vkcore::ActivityNone; // the last one on the monitor channel
    QEventLoop* mEventLoop = nullptr;                                // the wait of cmdUpdate
    QTimer mProgressTimer;
    QTimer mCancelTimer;
    bool mQuitRequested = false; // the service has asked its clients to quit
    int mCancelRequest = 0;      // 0 none, 1 polite, 2 forced; set by the signal handler
    int mCancelCount = 0;        // polite requests handled so far
};

} // namespace tarn::vkc
