#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>

#include <cstdint>
#include <vector>

namespace tarn::os {

// Confines a thread to the files that are named here. The kernel (Landlock) denies all others with EACCES,
// whatever path a bug or a foreign text produces, also through links. Open descriptors are not affected. This
// protects against wrong paths, not against injected code: the other threads share the memory and are not
// confined.
class Confinement
{
public:
    // False if the kernel has no Landlock, has it disabled, or has its first version, which can't move files
    // between folders.
    static bool isAvailable();

    Confinement() = default;
    ~Confinement();
    Confinement(const Confinement&) = delete;
    Confinement& operator=(const Confinement&) = delete;

    // The file, or the folder with everything below it, that the path leads to now. Missing ones are ignored.
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
