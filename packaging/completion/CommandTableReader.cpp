#include "CommandTableReader.h"

#include <cmdline/ArgumentChecks.h>
#include <vkc_Application.h>

#include <optionparser.h>

#include <cstring>
#include <map>

using namespace Qt::StringLiterals;

namespace tarn::vkc {

namespace {

std::string trimmed(const std::string& pText)
{
    const size_t tFirst = pText.find_first_not_of(" \n");
    return tFirst == std::string::npos ? std::string()
                                       : pText.substr(tFirst, pText.find_last_not_of(" \n") - tFirst + 1);
}

// A row of help is "  NAMES  \tTEXT".
std::pair<std::string, std::string> columns(const std::string& pRow)
{
    const size_t tTab = pRow.find('\t');
    return tTab == std::string::npos
               ? std::pair(std::string(), trimmed(pRow))
               : std::pair(trimmed(pRow.substr(0, tTab)), trimmed(pRow.substr(tTab + 1)));
}

ValueUse valueUse(const option::Descriptor& pRow)
{
    if (pRow.check_arg == argRequired) {
        return ValueUse::Required;
    }
    return pRow.check_arg == argOptional ? ValueUse::Optional : ValueUse::None;
}

// "  --server=ADDRESS, -s" names its value ADDRESS.
std::string valueName(const std::string& pNames)
{
    const size_t tStart = pNames.find('=');
    return tStart == std::string::npos
               ? std::string()
               : pNames.substr(tStart + 1, pNames.find_first_of(", ", tStart) - tStart - 1);
}

// "Set the proxy mode [os,manual]." lists two words.
std::vector<std::string> listedWords(const std::string& pHelp)
{
    std::vector<std::string> tWords;
    const size_t tOpen = pHelp.find('[');
    const size_t tClose = pHelp.find(']', tOpen == std::string::npos ? 0 : tOpen);
    if (tOpen == std::string::npos || tClose == std::string::npos) {
        return tWords;
    }
    for (size_t tStart = tOpen + 1; tStart < tClose;) {
        const size_t tEnd = std::min(pHelp.find(',', tStart), tClose);
        tWords.push_back(pHelp.substr(tStart, tEnd - tStart));
        tStart = tEnd + 1;
    }
    return tWords;
}

OptionWords optionWords(const option::Descriptor& pRow)
{
    OptionWords tOption;
    const auto [tNames, tHelp] = columns(pRow.help);
    tOption.mLong = pRow.longopt;
    tOption.mShort = pRow.shortopt;
    tOption.mValue = valueUse(pRow);
    tOption.mValueName = valueName(tNames);
    tOption.mWords = listedWords(tHelp);
    tOption.mHelp = tHelp;
    return tOption;
}

std::map<std::string, std::string> commandHelps(const std::string& pUsage)
{
    std::map<std::string, std::string> tHelps;
    for (size_t tStart = 0; tStart < pUsage.size();) {
        const size_t tEnd = std::min(pUsage.find('\n', tStart), pUsage.size());
        const auto [tName, tHelp] = columns(pUsage.substr(tStart, tEnd - tStart));
        tHelps[tName] = tHelp;
        tStart = tEnd + 1;
    }
    return tHelps;
}

} // namespace

std::vector<CommandWords> CommandTableReader::read()
{
    const vkcore::GRef<VKCApplication> tApp(new VKCApplication({u"vk"_s}, 0));
    const option::Descriptor* tUsage = tApp->getUsageOptDescriptor();
    while (tUsage[1].shortopt != nullptr) {
        ++tUsage;
    }
    std::map<std::string, std::string> tHelps = commandHelps(tUsage->help);

    std::vector<CommandWords> tCommands;
    for (const VKCApplication::CommandEntry* tEntry = VKCApplication::sCommands; tEntry->name != nullptr;
         ++tEntry) {
        CommandWords tCommand{tEntry->name, tHelps[tEntry->name], {}};
        for (const option::Descriptor* tRow = tEntry->options; tRow->shortopt != nullptr; ++tRow) {
            if (*tRow->longopt != '\0') {
                tCommand.mOptions.push_back(optionWords(*tRow));
            }
        }
        tCommands.push_back(tCommand);
    }
    return tCommands;
}

} // namespace tarn::vkc
