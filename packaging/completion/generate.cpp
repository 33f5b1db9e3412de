// Fills a completion script from the tables of commands and options:
//   rkm-completions list|bash|zsh|fish [TEMPLATE]
// "list" prints one row per option, for the tests of the manual and of the completions.

#include "CommandTableReader.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

using namespace tarn::vkc;

namespace {

using Commands = std::vector<CommandWords>;

void replaceAll(std::string* pText, const std::string& pOld, const std::string& pNew)
{
    for (size_t tAt = pText->find(pOld); tAt != std::string::npos;
         tAt = pText->find(pOld, tAt + pNew.size())) {
        pText->replace(tAt, pOld.size(), pNew);
    }
}

std::string join(const std::vector<std::string>& pWords, const std::string& pBetween)
{
    std::string tText;
    for (const std::string& tWord : pWords) {
        tText += (tText.empty() ? "" : pBetween) + tWord;
    }
    return tText;
}

// What a shell can offer as the value of an option: "folder", "file", "address", "words:A,B", "service:WORDS"
// for words that the running service knows, or "none".
std::string valueKind(const OptionWords& pOption)
{
    static const std::map<std::string, std::string> sByOption{
        {"socket", "file"},
        {"match-name", "service:servers"},
        {"match-index", "service:numbers"},
        {"app-language", "service:app-languages"},
        {"data-language", "service:data-languages"},
    };
    static const std::map<std::string, std::string> sByValue{{"PATH", "folder"}, {"ADDRESS", "address"}};

    if (!pOption.mWords.empty()) {
        return "words:" + join(pOption.mWords, ",");
    }
    if (const auto tFound = sByOption.find(pOption.mLong); tFound != sByOption.end()) {
        return tFound->second;
    }
    const auto tFound = sByValue.find(pOption.mValueName);
    return tFound != sByValue.end() ? tFound->second : "none";
}

std::vector<std::string> spellings(const OptionWords& pOption)
{
    std::vector<std::string> tSpellings{"--" + pOption.mLong};
    if (!pOption.mShort.empty()) {
        tSpellings.push_back("-" + pOption.mShort);
    }
    return tSpellings;
}

void printList(const Commands& pCommands)
{
    static const char* const sUses[] = {"none", "required", "optional"};
    for (const CommandWords& tCommand : pCommands) {
        for (const OptionWords& tOption : tCommand.mOptions) {
            std::cout << tCommand.mName << '\t' << tOption.mLong << '\t'
                      << (tOption.mShort.empty() ? "-" : tOption.mShort) << '\t'
                      << sUses[static_cast<int>(tOption.mValue)] << '\n';
        }
    }
}

std::string bash(const Commands& pCommands, std::string pTemplate)
{
    std::vector<std::string> tNames;
    std::vector<std::string> tOptions;
    std::vector<std::string> tValues;
    for (const CommandWords& tCommand : pCommands) {
        tNames.push_back(tCommand.mName);
        std::vector<std::string> tWords;
        for (const OptionWords& tOption : tCommand.mOptions) {
            std::vector<std::string> tPatterns;
            for (const std::string& tSpelling : spellings(tOption)) {
                tWords.push_back(tSpelling);
                tPatterns.push_back(tCommand.mName + ":" + tSpelling);
            }
            if (tOption.mValue != ValueUse::None) {
                tValues.push_back("        " + join(tPatterns, " | ") + ") echo " + valueKind(tOption) +
                                  " ;;");
            }
        }
        tOptions.push_back("        " + tCommand.mName + ") echo \"" + join(tWords, " ") + "\" ;;");
    }
    replaceAll(&pTemplate, "@COMMANDS@", join(tNames, " "));
    replaceAll(&pTemplate, "@OPTIONS@", join(tOptions, "\n"));
    replaceAll(&pTemplate, "@VALUES@", join(tValues, "\n"));
    return pTemplate;
}

// A text in single quotes for zsh's _arguments or _describe, with its special characters escaped.
std::string zshText(std::string pText)
{
    replaceAll(&pText, "'", "'\\''");
    for (const char* tSpecial : {":", "[", "]"}) {
        replaceAll(&pText, tSpecial, std::string("\\") + tSpecial);
    }
    return pText;
}

std::string zshAction(const std::string& pKind)
{
    if (pKind == "folder") {
        return "_directories";
    }
    if (pKind == "file") {
        return "_files";
    }
    if (pKind == "address") {
        return "_rkm_addresses";
    }
    if (pKind.rfind("words:", 0) == 0) {
        std::string tWords = pKind.substr(6);
        replaceAll(&tWords, ",", " ");
        return "(" + tWords + ")";
    }
    return pKind.rfind("service:", 0) == 0 ? "_rkm_service_words " + pKind.substr(8) : " ";
}

std::string zshOption(const OptionWords& pOption)
{
    std::string tValue;
    if (pOption.mValue != ValueUse::None) {
        const std::string tName = pOption.mValueName.empty() ? "value" : pOption.mValueName;
        tValue = std::string(pOption.mValue == ValueUse::Optional ? "::" : ":") + zshText(tName) + ":" +
                 zshAction(valueKind(pOption));
    }
    const std::string tRest = "[" + zshText(pOption.mHelp) + "]" + tValue + "'\n";
    std::string tRows;
    for (const std::string& tSpelling : spellings(pOption)) {
        const bool tIsLong = tSpelling.rfind("--", 0) == 0;
        tRows += "            '*";
        tRows += tSpelling;
        tRows += pOption.mValue == ValueUse::None ? "" : tIsLong ? "=" : "+";
        tRows += tRest;
    }
    return tRows;
}

std::string zsh(const Commands& pCommands, std::string pTemplate)
{
    std::string tNames;
    std::string tCases;
    for (const CommandWords& tCommand : pCommands) {
        tNames += "            '" + tCommand.mName + ":" + zshText(tCommand.mHelp) + "'\n";
        tCases += "        " + tCommand.mName + ") options=(\n";
        for (const OptionWords& tOption : tCommand.mOptions) {
            tCases += zshOption(tOption);
        }
        tCases += "        ) ;;\n";
    }
    replaceAll(&pTemplate, "@COMMANDS@\n", tNames);
    replaceAll(&pTemplate, "@CASES@\n", tCases);
    return pTemplate;
}

std::string fishText(std::string pText)
{
    replaceAll(&pText, "\\", "\\\\");
    replaceAll(&pText, "'", "\\'");
    return "'" + pText + "'";
}

std::string fishArguments(const OptionWords& pOption)
{
    const std::string tKind = valueKind(pOption);
    std::string tText = pOption.mValue == ValueUse::None ? "" : tKind == "file" ? " -r -F" : " -x";
    if (tKind == "folder" || tKind == "address") {
        tText += " -a '(__fish_complete_directories)'";
    } else if (tKind.rfind("words:", 0) == 0) {
        std::string tWords = tKind.substr(6);
        replaceAll(&tWords, ",", " ");
        tText += " -a " + fishText(tWords);
    } else if (tKind.rfind("service:", 0) == 0) {
        tText += " -a '(__rkm_service_words " + tKind.substr(8) + ")'";
    }
    return pOption.mValue == ValueUse::None ? "" : tText;
}

std::string fish(const Commands& pCommands, std::string pTemplate)
{
    std::string tRows;
    for (const CommandWords& tCommand : pCommands) {
        tRows += "complete -c rkm -n __rkm_needs_command -a " + tCommand.mName + " -d " +
                 fishText(tCommand.mHelp) + "\n";
        for (const OptionWords& tOption : tCommand.mOptions) {
            tRows += "complete -c rkm -n '__rkm_command_is " + tCommand.mName + "' -l " + tOption.mLong +
                     (tOption.mShort.empty() ? "" : " -s " + tOption.mShort) + fishArguments(tOption) +
                     " -d " + fishText(tOption.mHelp) + "\n";
        }
    }
    replaceAll(&pTemplate, "@ROWS@\n", tRows);
    return pTemplate;
}

} // namespace

int main(int pArgc, char** pArgv)
{
    static const std::map<std::string, std::function<std::string(const Commands&, std::string)>> sShells{
        {"bash", bash}, {"zsh", zsh}, {"fish", fish}};
    const std::string tWanted = pArgc > 1 ? pArgv[1] : "";
    const Commands tCommands = CommandTableReader::read();
    if (tWanted == "list") {
        printList(tCommands);
        return 0;
    }
    const auto tShell = sShells.find(tWanted);
    std::ifstream tFile(pArgc > 2 ? pArgv[2] : "");
    if (tShell == sShells.end() || !tFile) {
        std::fputs("usage: rkm-completions list | bash|zsh|fish TEMPLATE\n", stderr);
        return 1;
    }
    const std::string tTemplate((std::istreambuf_iterator<char>(tFile)), std::istreambuf_iterator<char>());
    std::cout << tShell->second(tCommands, tTemplate);
    return std::cout.flush() ? 0 : 1;
}
