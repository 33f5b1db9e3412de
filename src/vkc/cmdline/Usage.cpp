#include "vkc_Application.h"

#include <QtCore/QFile>

#include <optionparser.h>

#include <cstring>

namespace tarn::vkc {

// "monitoring" and "scheduling" are swapped; the text is kept because users and scripts know it.
static const char sSettingsCommands[] = "\nAvailable commands:\n"
                                        "  show-settings  \tShow current settings\n"
                                        "  update-settings  \tChange current settings\n\n"
                                        "  show-schedule-settings  \tShow scheduling options\n"
                                        "  update-schedule-settings  \tChange monitoring options\n\n"
                                        "  show-monitoring-settings  \tShow monitoring options\n"
                                        "  update-monitoring-settings  \tChange scheduling options\n\n";
static const char sServerCommands[] = "  list-servers  \tList the currently configured servers\n"
                                      "  add-server  \tAdd a new server to the server list\n"
                                      "  update-server  \tModify a server in the server list\n"
                                      "  remove-server  \tRemove server from the server list\n\n";
static const char sUpdateCommands[] =
    "  service-status  \tShow current automatic installation status\n\n"
    "  update  \tPerform an update\n\n"
    "  install-log  \tShow log of installed updates\n\n"
    "NOTE: You can use `rkm <command> --help` to get specific usage information for that command.";

const option::Descriptor* VKCApplication::getUsageOptDescriptor()
{
    option::Descriptor* tLast = sOptsNone;
    while (tLast[1].shortopt != nullptr) {
        ++tLast;
    }
    if (tLast->help[0] == '\0') {
        const QByteArray tText = QByteArray(sSettingsCommands) + sServerCommands + sUpdateCommands;
        tLast->help = strdup(tText.constData()); // lives as long as the table
    }
    return sOptsNone;
}

void VKCApplication::printUsage()
{
    if (mOptDesc == nullptr) {
        logAssertFailed("mOptDesc != 0", sSourcePath, __LINE__);
        return;
    }
    auto* const tFile = qobject_cast<QFile*>(mStdOut.device());
    if (tFile == nullptr) {
        logAssertFailed("tFile != 0", sSourcePath, __LINE__);
        return;
    }
    option::PrintUsageImplementation::OStreamWriter<QFile> tWriter(*tFile);
    option::PrintUsageImplementation::printUsage(tWriter, mOptDesc, 79, 50, 75);
    tFile->flush();
}

} // namespace tarn::vkc
