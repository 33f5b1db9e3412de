#include "packages/EntryPath.h"

#include <limits.h>

namespace tarn::packages {

std::optional<QByteArrayList> entryPath(const QByteArray& pPath, int pMaxDepth)
{
    if (pPath.isEmpty() || pPath.startsWith('/') || pPath.contains('\0')) {
        return std::nullopt;
    }
    QByteArrayList tNames;
    const QByteArrayList tParts = pPath.split('/');
    for (const QByteArray& tPart : tParts) {
        if (tPart.isEmpty() || tPart == ".") {
            continue;
        }
        if (tPart == ".." || tPart.size() > NAME_MAX || tNames.size() > pMaxDepth) {
            return std::nullopt;
        }
        tNames.append(tPart);
    }
    return tNames;
}

bool linkStaysInside(const QByteArray& pTarget, int pDepth)
{
    if (pTarget.isEmpty() || pTarget.startsWith('/') || pTarget.contains('\0') ||
        pTarget.size() >= PATH_MAX) {
        return false;
    }
    int tUp = 0;
    bool tNamed = false;
    const QByteArrayList tParts = pTarget.split('/');
    for (const QByteArray& tPart : tParts) {
        if (tPart == "..") {
            ++tUp;
            if (tNamed || tUp > pDepth) {
                return false;
            }
        } else if (!tPart.isEmpty() && tPart != ".") {
            tNamed = true;
        }
    }
    return true;
}

} // namespace tarn::packages
