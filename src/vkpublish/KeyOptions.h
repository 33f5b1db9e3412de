// The options of the commands that make keys.
#pragma once

#include "CommandLine.h"
#include "keys/KeyFile.h"

namespace tarn::vkpublish {

// --key-type and --no-passphrase.
void addKeyOptions(CommandLine* pLine);
// --sign-with and --public.
void addCommandOptions(CommandLine* pLine);

enum class KeyOptions
{
    KeysOnly,    // only those of addKeyOptions() were added
    WithCommand, // both
};

// No value, after an error message, if they are not valid.
std::optional<KeyOrder> readKeyOptions(const CommandLine& pLine, KeyOptions pOptions);
// False, after an error message, if the command of --sign-with has no words.
bool checkCommand(const QString& pCommand);

} // namespace tarn::vkpublish
