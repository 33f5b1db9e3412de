#pragma once

#include <QtCore/QCoreApplication>
#include <QtCore/QLatin1StringView>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkctl {

class CtlApplication;

// One row of the command line. The usage text, the check of the arguments and the call come from it.
struct Command
{
    QLatin1StringView mName;
    const char* mOperands; // as the usage text shows them, "" for none
    const char* mSummary;
    qsizetype mLeastOperands = 0;
    qsizetype mMostOperands = 0;
    QList<QLatin1StringView> mOptions = {};      // names of Option that it takes besides the common ones
    int (*mRun)(CtlApplication& pApp) = nullptr; // returns the exit status
};

struct Option
{
    QLatin1StringView mName;
    QLatin1StringView mValue; // as the usage text shows it; empty: the option takes none
    const char* mSummary;
    bool mIsCommon = true; // for every command
};

const QList<Command>& commands();
const QList<Option>& options();
// Null if there is no such command.
const Command* findCommand(const QString& pName);
QString usage();

} // namespace tarn::vkctl
