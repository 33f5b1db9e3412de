#pragma once

#include <string>
#include <vector>

namespace tarn::vkc {

// How an option takes a value.
enum class ValueUse
{
    None,
    Required,
    Optional,
};

struct OptionWords
{
    std::string mLong;
    std::string mShort; // one letter, or empty
    ValueUse mValue = ValueUse::None;
    std::string mValueName;          // "PATH"; empty if the table names none
    std::vector<std::string> mWords; // the values that the table lists
    std::string mHelp;
};

struct CommandWords
{
    std::string mName;
    std::string mHelp;
    std::vector<OptionWords> mOptions;
};

// The commands of rkm in the order of their table, read from the tables that rkm itself uses.
class CommandTableReader
{
public:
    static std::vector<CommandWords> read();
};

} // namespace tarn::vkc
