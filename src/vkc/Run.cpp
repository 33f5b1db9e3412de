#include "vkc_Application.h"

#include "cmdline/OptionIndex.h"

#include <vkcore/ProcessArgumentList.h>

#include <QtCore/QCoreApplication>

#include <optionparser.h>

#include <cstring>

namespace tarn::vkc {

void VKCApplication::run()
{
    const vkcore::ProcessArgumentList tArgs;
    int tArgc = tArgs.argc();
    char** tArgv = tArgs.argv();
    if (tArgc > 0) {
        --tArgc;
        ++tArgv;
    }

    const bool tNoCommand = tArgc < 1 || tArgv[0][0] == '-';
    int (VKCApplication::*tHandler)() = nullptr;
    if (!tNoCommand) {
        const char* const tWord = tArgv[0];
        --tArgc;
        ++tArgv;
        for (const CommandEntry* tEntry = sCommands; tEntry->name != nullptr; ++tEntry) {
            if (std::strcmp(tEntry->name, tWord) == 0) {
                mOptDesc = tEntry->options;
                tHandler = tEntry->handler;
            }
        }
        if (tHandler == nullptr) {
            printError(tr("Unknown command: %1").arg(QString::fromUtf8(tWord)));
        }
    }
    if (tHandler == nullptr) {
        mOptDesc = getUsageOptDescriptor();
    }

    parseOptions(tArgc, tArgv);
    QCoreApplication::exit(runHandler(tHandler, tNoCommand));
}

void VKCApplication::parseOptions(int pArgc, char** pArgv)
{
    constexpr bool tGnu = true;
    constexpr int tMinAbbrLen = 3;

    mOptStats = new option::Stats();
    mOptStats->add(tGnu, mOptDesc, pArgc, pArgv, tMinAbbrLen);
    mOptions = new option::Option[mOptStats->options_max];
    mOptBuffer = new option::Option[mOptStats->buffer_max];
    mOptParser = new option::Parser();
    mOptParser->parse(tGnu, mOptDesc, pArgc, pArgv, mOptions, mOptBuffer, tMinAbbrLen);
}

// Handles the common options in a fixed order, and otherwise runs the command. A null handler means no
// command or an unknown one.
int VKCApplication::runHandler(int (VKCApplication::*pHandler)(), bool pNoCommand)
{
    if (mOptParser->error()) {
        return 1;
    }
    if (mOptParser->nonOptionsCount() > 0) {
        return fail(tr("Unhandled argument '%1'").arg(QString::fromLocal8Bit(mOptParser->nonOption(0))));
    }
    if (optPassed(OPT_VERSION)) {
        printLine(getAppVersion().toTarnAppFormat());
        return 0;
    }
    if (optPassed(OPT_HELP) || pHandler == nullptr) {
        printUsage();
        return pHandler == nullptr && !pNoCommand ? 1 : 0;
    }
    if (optPassed(OPT_SOCKET)) {
        ++mBaseOptCount;
        mLink.setSocket(optArg(OPT_SOCKET, QString()));
    }
    mCancelTimer.start();
    return (this->*pHandler)();
}

} // namespace tarn::vkc
