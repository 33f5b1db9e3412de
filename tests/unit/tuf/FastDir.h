#pragma once

#include "Text.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>

// A template for temporary folders in memory, where fsync costs nothing, or where there is none, on disk.
inline QString fastDirTemplate()
{
    const QString tMemory = q("/dev/shm");
    return (QFileInfo(tMemory).isWritable() ? tMemory : QDir::tempPath()) + q("/rkm-test-XXXXXX");
}
