#pragma once

#include <vkcore/Export.h>

namespace tarn::vkcore {

// The arguments of this process, its name first, byte for byte. The strings live until the process ends, also
// after the object was destroyed.
class VKCORE_EXPORT ProcessArgumentList
{
public:
    ProcessArgumentList();

    int argc() const;
    char** argv() const; // argc() strings, then a null pointer
};

} // namespace tarn::vkcore
