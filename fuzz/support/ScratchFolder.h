#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>
#include <QtCore/QTemporaryDir>

namespace tarn::fuzz {

// A private folder, in memory if possible, because a target creates and removes files thousands of times a
// minute. The destructor removes it.
class ScratchFolder
{
public:
    ScratchFolder();

    QString path(const QString& pName = {}) const { return mFolder.filePath(pName); }
    // Replaces the file.
    void write(const QString& pName, const QByteArray& pBytes) const;

private:
    QTemporaryDir mFolder;
};

} // namespace tarn::fuzz
