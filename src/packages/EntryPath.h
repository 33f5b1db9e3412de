#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>

#include <optional>

namespace tarn::packages {

// The names of an archive entry's path, from the package's root; empty for the root itself. No value for a
// path that is absolute, has "..", is too deep or can't be a file name.
std::optional<QByteArrayList> entryPath(const QByteArray& pPath, int pMaxDepth);

// Whether a link with this text, in a folder pDepth below the package's root, stays inside the package. ".."
// is only allowed at the start: after a name, which may be a link, it would leave the link's target.
bool linkStaysInside(const QByteArray& pTarget, int pDepth);

} // namespace tarn::packages
