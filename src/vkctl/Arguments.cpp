#include "Arguments.h"

#include <QtCore/QCommandLineParser>

using namespace Qt::StringLiterals;

namespace tarn::vkctl {

namespace {

std::optional<Arguments::Command> commandOf(const QString& pWord)
{
    using Command = Arguments::Command;
    constexpr std::pair<QLatin1StringView, Command> sCommands[] = {
        {"status"_L1, Command::Status}, {"verify"_L1, Command::Verify}, {"repair"_L1, Command::Repair}};
    for (const auto& [tWord, tCommand] : sCommands) {
        if (pWord == tWord) {
            return tCommand;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<Arguments> Arguments::parse(const QStringList& pWords, QString* pError)
{
    QCommandLineParser tParser;
    tParser.addOptions(
        {{{u"h"_s, u"help"_s}, {}}, {u"version"_s, {}}, {u"json"_s, {}}, {u"socket"_s, {}, u"NAME"_s}});
    if (!tParser.parse(QStringList{u"vkctl"_s} + pWords)) {
        const QStringList tUnknown = tParser.unknownOptionNames();
        *pError = tUnknown.isEmpty() ? tr("Option '%1' requires an argument").arg(u"--socket"_s)
                                     : tr("Unknown option: '%1'").arg(tUnknown.first());
        return std::nullopt;
    }
    Arguments tArguments;
    tArguments.mIsJson = tParser.isSet(u"json"_s);
    if (tParser.isSet(u"socket"_s)) {
        tArguments.mSocket = tParser.value(u"socket"_s);
    }
    const QStringList tWords = tParser.positionalArguments();
    const auto tCommand = commandOf(tWords.value(0));
    if (!tWords.isEmpty() && !tCommand) {
        *pError = tr("Unknown command: %1").arg(tWords.first());
        return std::nullopt;
    }
    if (tWords.size() > 1) {
        *pError = tr("Unhandled argument '%1'").arg(tWords[1]);
        return std::nullopt;
    }
    tArguments.mCommand = tCommand.value_or(Command::Help);
    if (tParser.isSet(u"version"_s)) {
        tArguments.mCommand = Command::Version;
    } else if (tParser.isSet(u"help"_s)) {
        tArguments.mCommand = Command::Help;
    }
    return tArguments;
}

QString Arguments::usage()
{
    return tr("USAGE: vkctl <command> [options]\n"
              "\n"
              "Commands:\n"
              "  status     Show the installed packages and what is known about their files\n"
              "  verify     Compare all installed files with what was published\n"
              "  repair     Install damaged packages again\n"
              "\n"
              "Options:\n"
              "  --json         Print one JSON object\n"
              "  --socket=NAME  Use the service that listens on this socket\n"
              "  -h, --help     Show this help\n"
              "  --version      Show the version");
}

} // namespace tarn::vkctl
