#include "support/ScratchFolder.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cstdlib>

using namespace Qt::StringLiterals;

namespace tarn::fuzz {

namespace {

QString nameTemplate()
{
    const QString tMemory = u"/dev/shm"_s;
    return (QDir(tMemory).exists() ? tMemory : QDir::tempPath()) + u"/rkm-fuzz.XXXXXX"_s;
}

} // namespace

// Nothing can be found without a folder to work in.
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
