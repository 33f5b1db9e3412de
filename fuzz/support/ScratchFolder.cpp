#include "support/ScratchFolder.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdlib>

namespace tarn::fuzz {

namespace {

QString nameTemplate()
{
    const QString tMemory = QStringLiteral("/dev/shm");
    return (QDir(tMemory).exists() ? tMemory : QDir::tempPath()) + QStringLiteral("/rkm-fuzz.XXXXXX");
}

} // namespace

// Without a place to work in there is nothing to find.
ScratchFolder::ScratchFolder() : mFolder(nameTemplate())
{
    if (!mFolder.isValid()) {
        std::abort();
    }
}

void ScratchFolder::write(const QString& pName, const QByteArray& pBytes) const
{
    QFile tFile(path(pName));
    if (!tFile.open(QIODevice::WriteOnly | QIODevice::Truncate) || tFile.write(pBytes) != pBytes.size()) {
        std::abort();
    }
}

} // namespace tarn::fuzz
