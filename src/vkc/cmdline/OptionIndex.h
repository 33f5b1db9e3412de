#pragma once

namespace tarn::vkc {

// The options of the commands. Two spellings of one option share an index, and so do options of different
// commands with the same code. 17 to 19 are not used.
enum OptionIndex : unsigned
{
    OPT_UNKNOWN = 0,
    OPT_HELP = 1,
    OPT_VERSION = 2,
    OPT_SOCKET = 3,
    OPT_NAME = 4,
    OPT_SERVER = 5,
    OPT_USER = 6,
    OPT_PASSWORD = 7,
    OPT_ENABLE = 8,
    OPT_DEFAULT = 9,
    OPT_MATCH_NAME = 10,
    OPT_MATCH_INDEX = 11,
    OPT_PROXY = 12,
    OPT_PROXY_MODE = 13,
    OPT_PROXY_USER = 14,
    OPT_PROXY_PASSWORD = 15,
    OPT_DATA_DIR = 16,
    OPT_APP_LANGUAGE = 20,
    OPT_DATA_LANGUAGE = 21,
    OPT_WAIT = 22,
    OPT_QUIET = 23,
    OPT_CONFIG_VAR = 24,
    OPT_MODE = 25,
    OPT_INTERVAL = 26,
    OPT_NEXT_UPDATE = 27,
    OPT_EVENT_MAILS = 28,
    OPT_SEND_ON_UPDATE = 29,
    OPT_SEND_ON_OVERDUE = 30,
    OPT_SEND_ON_MANUAL_INTERVENTION = 31,
    OPT_SEND_SUMMARY = 32,
    OPT_SUMMARY_ON_CHANGE = 33,
    OPT_SUMMARY_INTERVAL = 34,
    OPT_OVERDUE_TOLERANCE = 35,
    OPT_COMPUTER_NAME = 36,
    OPT_ADDRESSES = 37,
    OPT_ALL = 38,
};

// The type column of the option tables.
enum OptionType : int
{
    OptionPlain = 0,
    OptionEnables = 1,
    OptionDisables = 2,
};

} // namespace tarn::vkc
