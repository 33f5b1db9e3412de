#include "CommandLine.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice {

CommandLine CommandLine::parse(const QStringList& pArguments)
{
    CommandLine tLine;
    for (const QString& tArgument : pArguments) {
        if (tArgument == "--help"_L1) {
            tLine.mOrder = Order::Help;
            return tLine;
        }
        if (tArgument == "--version"_L1) {
            tLine.mOrder = Order::Version;
            return tLine;
        }
        if (tArgument == "--hand-over"_L1 || tArgument == "--hand-back"_L1) {
            tLine.mOrder = tArgument == "--hand-over"_L1 ? Order::HandOver : Order::HandBack;
            return tLine;
        }
        if (tArgument == "-e"_L1) {
            tLine.mForeground = true;
        } else if (tArgument == "-worker"_L1) {
            tLine.mWorker = true;
        } else if (tArgument.startsWith("-s="_L1) && tArgument.size() > 3) {
            tLine.mSocketName = tArgument.mid(3);
        } else {
            tLine.mOrder = Order::Refuse;
            tLine.mComplaint = u"Unknown argument: %1"_s.arg(tArgument);
            return tLine;
        }
    }
    return tLine;
}

QString CommandLine::usage()
{
    return u"Usage: vkservice [-e] [-worker] [-s=NAME]\n"
           "\n"
           "Installs updates on request or on a schedule, and answers rkm on a local socket.\n"
           "Without options it is the machine's service, which systemd starts.\n"
           "\n"
           "  -e         Run in the foreground of the caller and log to the log file.\n"
           "  -worker    Serve the process that started this one, without the schedule, and quit\n"
           "             when it has ended and no client is left.\n"
           "  -s=NAME    Listen on this socket: a path, or a name in the temporary directory.\n"
           "             Default: the configuration key service.socketName, else for root\n"
           "             /run/vkservice/socket, for others $XDG_RUNTIME_DIR/vkservice.socket.\n"
           "  --hand-over, --hand-back\n"
           "             Give the files of the machine's service to the user that service.user names,\n"
           "             or back to root. For root, while no service runs.\n"
           "  --help     Show this text.\n"
           "  --version  Show the version.\n"
           "\n"
           "Exit status: 0 after a clean shutdown, 1 if the service can't run, 2 for an invalid argument.\n"_s;
}

} // namespace tarn::vkservice
