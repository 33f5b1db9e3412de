#include "vkc_Application.h"

#include "ArgumentChecks.h"
#include "OptionIndex.h"

#include <optionparser.h>

namespace tarn::vkc {

// The help column is printed literally: a tab ends a column, a newline a line.

// clang-format off

#define HEAD_ROWS(USAGE) \
    {OPT_UNKNOWN, OptionPlain, "", "", argUnkown, USAGE}, \
    {OPT_HELP, OptionPlain, "h", "help", option::Arg::None, "  --help, -h  \tShow this help message and exit."}, \
    {OPT_VERSION, OptionPlain, "", "version", option::Arg::None, "  --version  \tShow version number and exit."}, \
    {OPT_SOCKET, OptionPlain, "", "socket", argRequired, \
     "  --socket  \tOveride the default location of the socket used to communicate with the service."}, \
    SEPARATOR
#define TEXT_ROW(TEXT) {OPT_UNKNOWN, OptionPlain, "", "", option::Arg::None, TEXT}
#define SEPARATOR TEXT_ROW("")
#define END_ROW {0, 0, nullptr, nullptr, nullptr, nullptr}

option::Descriptor VKCApplication::sOptsNone[] = {
    HEAD_ROWS("USAGE: rkm <command> [options]\n\nOptions:"),
    TEXT_ROW(""), // the list of commands
    END_ROW,
};

static const option::Descriptor sOptsShowSettings[] = {
    HEAD_ROWS("USAGE: rkm show-settings [options]\n\nOptions:"),
    {OPT_SERVER, OptionEnables, "s", "server", option::Arg::None,
     "  --server, -s  \tShow the currently configured default update server."},
    {OPT_PROXY, OptionEnables, "P", "proxy", option::Arg::None,
     "  --proxy, -P  \tShow the currently configured proxy."},
    {OPT_DATA_DIR, OptionEnables, "d", "data-dir", option::Arg::None,
     "  --data-dir, -d  \tShow the currently configured KDML data directory."},
    SEPARATOR,
    {OPT_APP_LANGUAGE, OptionEnables, "l", "app-language", option::Arg::None,
     "  --app-language, -l  \tShow the current application language."},
    {OPT_DATA_LANGUAGE, OptionEnables, "L", "data-language", option::Arg::None,
     "  --data-language, -L  \tShow the current data language."},
    SEPARATOR,
    {OPT_CONFIG_VAR, OptionEnables, "", "config-var", argRequired,
     "  --config-var=NAME  \tShow the value of the configuration variable NAME."},
    END_ROW,
};

static const option::Descriptor sOptsUpdateSettings[] = {
    HEAD_ROWS("USAGE: rkm update-settings [options]\n\nOptions:"),
    {OPT_SERVER, OptionPlain, "s", "server", argRequired,
     "  --server=ADDRESS, -s  \tSet the address of the default server."},
    {OPT_USER, OptionPlain, "u", "user", argRequired,
     "  --user=USERNAME, -u  \tAuthenticate to the default server with this username."},
    {OPT_PASSWORD, OptionPlain, "p", "password", argOptional,
     "  --password=PASSWORD, -p  \tAuthenticate to the default server with this password."},
    SEPARATOR,
    {OPT_PROXY_MODE, OptionPlain, "", "proxy-mode", argRequired,
     "  --proxy-mode=MODE  \tSet the proxy mode [os,manual]."},
    {OPT_PROXY, OptionPlain, "P", "proxy", argRequired,
     "  --proxy=SERVER, -P  \tSet proxy server to be used."},
    {OPT_PROXY_USER, OptionPlain, "", "proxy-user", argRequired,
     "  --proxy-user=USERNAME  \tSet username for the proxy."},
    {OPT_PROXY_PASSWORD, OptionPlain, "", "proxy-password", argOptional,
     "  --proxy-password=PASSWORD  \tSet password for the proxy."},
    SEPARATOR,
    {OPT_DATA_DIR, OptionPlain, "d", "data-dir", argRequired,
     "  --data-dir=PATH, -d  \tSet the data directory."},
    SEPARATOR,
    {OPT_APP_LANGUAGE, OptionPlain, "l", "app-language", argOptional,
     "  --app-language=LANG, -l  \tShow the current application language."},
    {OPT_DATA_LANGUAGE, OptionPlain, "L", "data-language", argOptional,
     "  --data-language=LANG, -L  \tShow the current data language."},
    SEPARATOR,
    {OPT_CONFIG_VAR, OptionPlain, "", "config-var", argRequired,
     "  --config-var=NAME:VALUE  \tSet configuration variable NAME to VALUE."},
    END_ROW,
};

static const option::Descriptor sOptsShowScheduleSettings[] = {
    HEAD_ROWS("USAGE: rkm show-schedule-settings [options]\n\nOptions:"),
    END_ROW,
};

static const option::Descriptor sOptsUpdateScheduleSettings[] = {
    HEAD_ROWS("USAGE: rkm update-schedule-settings [options]\n\nOptions:"),
    {OPT_MODE, OptionPlain, "m", "mode", argRequired,
     "  --mode=MODE, -m  \tSet the mode of the automatic installation [manual,automatic,notification]."},
    {OPT_INTERVAL, OptionPlain, "i", "interval", argRequired,
     "  --interval=PERIOD, -i  \tSpecify the interval between updates."},
    {OPT_NEXT_UPDATE, OptionPlain, "n", "next-update", argRequired,
     "  --next-update=DATE, -n  \tSchedule the next update for DATE."},
    TEXT_ROW(
        "\n"
        "NOTES:\n"
        "\n"
        "PERIOD has to be specified as a number followed by a unit, where unit can be any of:\n"
        "  h: hour\n"
        "  d: day\n"
        "  w: week\n"
        "  m: month\n"
        "e.g. --interval=3d sets the update interval to 3 days\n"
        "\n"
        "DATE must be in the format YYYY-mm-dd HH:MM:SS\n"
        "e.g. --next-update=\"2013-01-01 12:00:00\""),
    END_ROW,
};

static const option::Descriptor sOptsShowMonitoringSettings[] = {
    HEAD_ROWS("USAGE: rkm show-monitoring-settings [options]\n\nOptions:"),
    END_ROW,
};

static const option::Descriptor sOptsUpdateMonitoringSettings[] = {
    HEAD_ROWS("USAGE: rkm update-monitoring-settings [options]\n\nOptions:"),
    {OPT_EVENT_MAILS, OptionEnables, "e", "event-mails", option::Arg::None,
     " --event-mails, -e  \tSend event e-mails"},
    {OPT_EVENT_MAILS, OptionDisables, "E", "no-event-mails", option::Arg::None,
     " --no-event-mails, -E  \tDon't send event e-mails."},
    {OPT_SEND_ON_UPDATE, OptionEnables, "u", "send-on-update", option::Arg::None,
     " --send-on-update, -u  \tSend e-mail on update."},
    {OPT_SEND_ON_UPDATE, OptionDisables, "U", "no-send-on-update", option::Arg::None,
     " --no-send-on-update, -U  \tDon't send e-mail on update."},
    {OPT_SEND_ON_OVERDUE, OptionEnables, "o", "send-on-overdue", option::Arg::None,
     " --send-on-overdue, -o  \tSend e-mail when an update is overdue."},
    {OPT_SEND_ON_OVERDUE, OptionDisables, "O", "no-send-on-overdue", option::Arg::None,
     " --no-send-on-overdue, -O  \tDon't send e-mail when an update is overdue."},
    {OPT_SEND_ON_MANUAL_INTERVENTION, OptionEnables, "m", "send-on-manual-intervention", option::Arg::None,
     " --send-on-manual-intervention, -m  \tSend e-mail when an update requires manual intervention."},
    {OPT_SEND_ON_MANUAL_INTERVENTION, OptionDisables, "M", "no-send-on-manual-intervention", option::Arg::None,
     " --no-send-on-manual-intervention, -M  \tDon't send e-mail when an update requires manual intervention."},
    SEPARATOR,
    {OPT_SEND_SUMMARY, OptionEnables, "s", "send-summary", option::Arg::None,
     " --send-summary, -s  \tRegularly send summarized status e-mails"},
    {OPT_SEND_SUMMARY, OptionDisables, "S", "no-send-summary", option::Arg::None,
     " --no-send-summary, -S  \tDon't send summarized status e-mails"},
    {OPT_SUMMARY_ON_CHANGE, OptionEnables, "c", "send-summary-on-change", option::Arg::None,
     " --send-summary-on-change, -c  \tOnly send summary e-mail when it has changed"},
    {OPT_SUMMARY_ON_CHANGE, OptionDisables, "C", "send-summary-always", option::Arg::None,
     " --send-summary-always, -C  \tAlways send summarized status e-mail"},
    {OPT_SUMMARY_INTERVAL, OptionPlain, "i", "summary-interval", argRequired,
     " --summary-interval=DAYS, -i  \tSet the interval (in days) for sending the summarized e-mail."},
    SEPARATOR,
    {OPT_OVERDUE_TOLERANCE, OptionPlain, "d", "overdue-tolerance", argRequired,
     " --overdue-tolerance=DAYS, -d  \tSet the tolerance (in days) after which an update is considered overdue."},
    {OPT_COMPUTER_NAME, OptionPlain, "n", "computer-name", argRequired,
     " --computer-name=NAME, -n  \tSet the computer name to be used in e-mails."},
    {OPT_ADDRESSES, OptionPlain, "a", "addresses", argRequired,
     " --addresses=ADDRESSES, -a  \tSet the addresses (comma separated) to which notification e-mails should be sent."},
    END_ROW,
};

static const option::Descriptor sOptsListServers[] = {
    HEAD_ROWS("USAGE: rkm list-servers [options]\n\nOptions:"),
    END_ROW,
};

static const option::Descriptor sOptsAddServer[] = {
    HEAD_ROWS("USAGE: rkm add-server [options]\n\nOptions:"),
    {OPT_NAME, OptionPlain, "n", "name", argRequired,
     "  --name=NAME, -n  \tSet the server name to NAME."},
    {OPT_SERVER, OptionPlain, "a", "address", argRequired,
     "  --address=ADDRESS, -a  \tSet the server address to ADDRESS."},
    {OPT_USER, OptionPlain, "u", "user", argRequired,
     "  --user=USERNAME, -u  \tAuthenticate to the server with this username."},
    {OPT_PASSWORD, OptionPlain, "p", "password", argOptional,
     "  --password=PASSWORD, -p  \tAuthenticate to the server with this password."},
    SEPARATOR,
    {OPT_ENABLE, OptionEnables, "e", "enable", option::Arg::None,
     "  --enable, -e  \tEnable the server."},
    {OPT_ENABLE, OptionDisables, "E", "disable", option::Arg::None,
     "  --disable, -E  \tDisable the server."},
    {OPT_DEFAULT, OptionEnables, "d", "default", option::Arg::None,
     "  --default, -d  \tMake this server the default server."},
    END_ROW,
};

static const option::Descriptor sOptsUpdateServer[] = {
    HEAD_ROWS("USAGE: rkm update-server [options]\n\nOptions:"),
    {OPT_MATCH_NAME, OptionPlain, "m", "match-name", argRequired,
     "  --match-name=NAME, -m  \tModify server with the name NAME."},
    {OPT_MATCH_INDEX, OptionPlain, "M", "match-index", argRequired,
     "  --match-index=NUMBER, -M  \tModify server with the index NUMBER."},
    SEPARATOR,
    {OPT_NAME, OptionPlain, "n", "name", argRequired,
     "  --name=NAME, -n  \tSet the server name to NAME."},
    {OPT_SERVER, OptionPlain, "a", "address", argRequired,
     "  --address=ADDRESS, -a  \tSet the server address to ADDRESS."},
    {OPT_USER, OptionPlain, "u", "user", argRequired,
     "  --user=USERNAME, -u  \tAuthenticate to the server with this username."},
    {OPT_PASSWORD, OptionPlain, "p", "password", argOptional,
     "  --password=PASSWORD, -p  \tAuthenticate to the server with this password."},
    SEPARATOR,
    {OPT_ENABLE, OptionEnables, "e", "enable", option::Arg::None,
     "  --enable, -e  \tEnable the server."},
    {OPT_ENABLE, OptionDisables, "E", "disable", option::Arg::None,
     "  --disable, -E  \tDisable the server."},
    {OPT_DEFAULT, OptionEnables, "d", "default", option::Arg::None,
     "  --default, -d  \tMake this server the default server."},
    END_ROW,
};

static const option::Descriptor sOptsRemoveServer[] = {
    HEAD_ROWS("USAGE: rkm remove-server [options]\n\nOptions:"),
    {OPT_MATCH_NAME, OptionPlain, "m", "match-name", argRequired,
     "  --match-name=NAME, -m  \tRemove server with the name NAME."},
    {OPT_MATCH_INDEX, OptionPlain, "M", "match-index", argRequired,
     "  --match-index=NUMBER, -M  \tRemove server with the index NUMBER."},
    END_ROW,
};

static const option::Descriptor sOptsServiceStatus[] = {
    HEAD_ROWS("USAGE: rkm service-status [options]\n\nOptions:"),
    END_ROW,
};

static const option::Descriptor sOptsUpdate[] = {
    HEAD_ROWS("USAGE: rkm update [options]\n\nOptions:"),
    {OPT_WAIT, OptionDisables, "", "no-wait", option::Arg::None,
     "  --no-wait  \tDo not wait until the update process has completed"},
    {OPT_QUIET, OptionEnables, "q", "quiet", option::Arg::None,
     "  --quiet, -q  \tDo not display progress information. "},
    END_ROW,
};

static const option::Descriptor sOptsInstallLog[] = {
    HEAD_ROWS("USAGE: rkm install-log [options]\n\nOptions:"),
    {OPT_INTERVAL, OptionPlain, "i", "interval", argRequired,
     "  --interval=PERIOD, -i  \tShow updates in the given interval."},
    {OPT_ALL, OptionEnables, "a", "all", option::Arg::None,
     "  --all, -a  \tShow all packages."},
    TEXT_ROW(
        "\n"
        "NOTES:\n"
        "\n"
        "PERIOD has to be specified as a number followed by a unit, where unit can be any of:\n"
        "  h: hour\n"
        "  d: day\n"
        "  w: week\n"
        "  m: month\n"
        "e.g. --interval=3d sets the update interval to 3 days"),
    END_ROW,
};

#undef HEAD_ROWS
#undef TEXT_ROW
#undef SEPARATOR
#undef END_ROW

const VKCApplication::CommandEntry VKCApplication::sCommands[] = {
    {"show-settings", sOptsShowSettings, &VKCApplication::cmdShowSettings},
    {"update-settings", sOptsUpdateSettings, &VKCApplication::cmdUpdateSettings},
    {"show-schedule-settings", sOptsShowScheduleSettings, &VKCApplication::cmdShowScheduleSettings},
    {"update-schedule-settings", sOptsUpdateScheduleSettings, &VKCApplication::cmdUpdateScheduleSettings},
    {"show-monitoring-settings", sOptsShowMonitoringSettings, &VKCApplication::cmdShowMonitoringSettings},
    {"update-monitoring-settings", sOptsUpdateMonitoringSettings, &VKCApplication::cmdUpdateMonitoringSettings},
    {"list-servers", sOptsListServers, &VKCApplication::cmdListServers},
    {"add-server", sOptsAddServer, &VKCApplication::cmdAddServer},
    {"update-server", sOptsUpdateServer, &VKCApplication::cmdUpdateServer},
    {"remove-server", sOptsRemoveServer, &VKCApplication::cmdRemoveServer},
    {"service-status", sOptsServiceStatus, &VKCApplication::cmdServiceStatus},
    {"update", sOptsUpdate, &VKCApplication::cmdUpdate},
    {"install-log", sOptsInstallLog, &VKCApplication::cmdInstallLog},
    {nullptr, nullptr, nullptr},
};

// clang-format on

} // namespace tarn::vkc
