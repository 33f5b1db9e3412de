#pragma once

#include <vkcore/Export.h>

#include <QtCore/QString>

namespace tarn::vkcore {

class VKCORE_EXPORT Util
{
public:
    // The operating system's name and kernel, for the log.
    QString prettyOsVersion() const;
};

} // namespace tarn::vkcore
