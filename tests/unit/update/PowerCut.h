#pragma once

#include "FaultyFileSystem.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>

#include <sys/stat.h>

// The disk under one folder as it is after a power cut: each file has the bytes of its last sync, each folder
// the names of its last sync. Databases are left alone: SQLite answers for them.
class PowerCut
{
public:
    enum class Loses
    {
        BytesAndNames,
        Bytes // a journal has brought names to the disk before the bytes of their files
    };

    // Everything that is there already is on the disk.
    PowerCut(const QString& pRoot, Loses pLoses);

    // Runs pBody in a child process, which is confined to its folders while this process is not. The power is
    // cut before the change number pCount, or behind the last one: then this returns false.
    bool during(const std::function<void(tarn::os::FileSystem&)>& pBody, int pCount);

private:
    using Path = std::filesystem::path;
    class Reporting;

    struct Node
    {
        mode_t mMode = 0;
        QByteArray mBytes; // of a file, or the target of a link
        std::map<Path, std::shared_ptr<Node>> mNames;
    };

    std::shared_ptr<Node> nodeOf(const Path& pPath, const struct stat& pStat);
    void keep(const Path& pPath, bool pDeep, bool pBytes);
    void cut();
    static void erase(const Path& pDir);
    static void restore(const Node& pNode, const Path& pPath);

    const Path mRoot;
    const Loses mLoses;
    std::map<ino_t, std::shared_ptr<Node>> mNodes;
};
