#pragma once

#include <vkcore/Export.h>

namespace tarn::vkcore {

// The arguments of this process, its own name first, byte for byte as the process was given them.
// The strings live to the end of the process, also behind the object's own end.
class VKCORE_EXPORT ProcessArgumentList
{
public:
    ProcessArgumentList();

    int argc() const;
    char** argv() const; // argc() strings and a null pointer behind them
};

} // namespace tarn::vkcore
