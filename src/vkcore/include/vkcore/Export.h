#pragma once

#include <QtCore/qglobal.h>

// The library hides everything that is not marked with this.
#if defined(VKCORE_BUILD)
#define VKCORE_EXPORT Q_DECL_EXPORT
#else
#define VKCORE_EXPORT Q_DECL_IMPORT
#endif
