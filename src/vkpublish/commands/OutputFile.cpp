#include "commands/OutputFile.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxKey = 64 * 1024;

} // namespace

Failure writeOutputFile(const QString& pPath, const QByteArray& pBytes)
{
    const QFileInfo tThere(pPath);
    if (tThere.exists() && !tThere.isFile()) {
        return Failure::content(u"--output: %1 is no file"_s.arg(pPath));
    }
    if (os::readFile(os::realFileSystem(), pPath, sMaxKey).valueOr({}).contains("PRIVATE KEY-----")) {
        return Failure::content(u"--output: %1 has a private key, and is not replaced"_s.arg(pPath));
    }
    return os::replaceFile(os::realFileSystem(), pPath, pBytes, sFileMode);
}

} // namespace tarn::vkpublish
