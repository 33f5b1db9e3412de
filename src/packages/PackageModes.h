#pragma once

#include <sys/types.h>

namespace tarn::packages {

// What is in the folder of a package is read-only, since packages share files.
inline constexpr mode_t sFolderMode = 0555;
inline constexpr mode_t sNewFolderMode = 0755; // while it is filled; the top one until it is in its place

constexpr mode_t fileMode(bool pIsExecutable)
{
    return pIsExecutable ? 0555 : 0444;
}

} // namespace tarn::packages
