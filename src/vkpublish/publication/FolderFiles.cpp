#include "publication/FolderFiles.h"

#include <QtCore/QFile>

#include <dirent.h>
#include <sys/stat.h>

namespace tarn::vkpublish {

// QDir takes several times as long for tens of thousands of files.
QHash<QString, qint64> filesIn(const QString& pFolder)
{
    QHash<QString, qint64> tFiles;
    DIR* tFolder = ::opendir(QFile::encodeName(pFolder).constData());
    if (tFolder == nullptr) {
        return tFiles;
    }
    while (const dirent* tEntry = ::readdir(tFolder)) {
        struct stat tStat;
        if (::fstatat(::dirfd(tFolder), tEntry->d_name, &tStat, 0) == 0 && S_ISREG(tStat.st_mode)) {
            tFiles.insert(QFile::decodeName(tEntry->d_name), tStat.st_size);
        }
    }
    ::closedir(tFolder);
    return tFiles;
}

} // namespace tarn::vkpublish
