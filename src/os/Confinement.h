#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <cstdint>
#include <vector>

namespace tarn::os {

// Which files a thread may still open: what is named here, and nothing else. The kernel (Landlock) refuses
// the rest with EACCES, whatever path a fault in the program or a text from elsewhere leads to, and also
// behind links. Descriptors that are open already are not touched. It is a wall against wrong paths, not
// against foreign code in the process: the other threads share its memory and are free.
class Confinement
{
public:
    // False where the kernel has no Landlock, has it switched off, or has its first version, which could not
    // move a file from one folder to another.
    static bool isAvailable();

    Confinement() = default;
    ~Confinement();
    Confinement(const Confinement&) = delete;
    Confinement& operator=(const Confinement&) = delete;

    // The file, or the folder with all below it, as the path leads to it now. What is not there is left out.
    void allowReading(const QString& pPath);
    // Reading, and running the programs in it.
    void allowPrograms(const QString& pPath);
    // Making, changing, moving and removing files, folders and links, and reading them.
    void allowWriting(const QString& pPath);

    // Confines the calling thread, and the threads that it starts later, until they end. Not to be called
    // without isAvailable(). After a failure the thread is as free as before.
    Failure enter();

private:
    struct Rule
    {
        int mFd;
        std::uint64_t mAccess;
    };
    void allow(const QString& pPath, std::uint64_t pAccess);

    std::vector<Rule> mRules;
};

} // namespace tarn::os
