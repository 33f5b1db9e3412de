#include <gtest/gtest.h>

#include <QtCore/QCoreApplication>

#include <sys/statvfs.h>
#include <unistd.h>

namespace {

// These tests write thousands of small files and databases; in memory this takes a tenth of the time.
void useMemoryForFiles()
{
    const char* tFolder = "/dev/shm";
    struct statvfs tVfs;
    if (::access(tFolder, W_OK) == 0 && ::statvfs(tFolder, &tVfs) == 0 && (tVfs.f_flag & ST_NOEXEC) == 0 &&
        tVfs.f_bavail * tVfs.f_frsize > 200 * 1024 * 1024) {
        qputenv("TMPDIR", tFolder);
    }
}

} // namespace

int main(int pCount, char** pArguments)
{
    testing::InitGoogleTest(&pCount, pArguments);
    useMemoryForFiles();
    QCoreApplication tApplication(pCount, pArguments);
    return RUN_ALL_TESTS();
}
