#pragma once

#include <optionparser.h>

namespace tarn::vkc {

// The check functions of the option tables. They write their message, if pMessage is true, to
// standard error.

// For the row that matches every unknown option: refuses it.
option::ArgStatus argUnkown(const option::Option& pOption, bool pMessage);
// Refuses the option without a value.
option::ArgStatus argRequired(const option::Option& pOption, bool pMessage);
// Accepts the option with or without a value.
option::ArgStatus argOptional(const option::Option& pOption, bool pMessage);

} // namespace tarn::vkc
