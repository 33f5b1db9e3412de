#pragma once

#include "network/HttpsClient.h"
#include "network/MetadataSource.h"

#include <memory>

namespace tarn::vkpublish {

class Receiver;

// The repository that a mirror copies. Nothing that it says is believed.
class Origin
{
public:
    virtual ~Origin() = default;

    virtual tuf::Fetcher& metadata() = 0;
    // One attempt to get a file. pPath: below the targets folder, percent-encoded. Kind::Unreachable if
    // another attempt may succeed.
    virtual Failure get(const QString& pPath, Receiver& pTo) = 0;
};

// pAccess: for a web server; its folder is set from pPlace. Does not fetch anything yet.
std::unique_ptr<Origin> openOrigin(os::FileSystem& pFileSystem, const Place& pPlace,
                                   const HttpsAccess& pAccess);

} // namespace tarn::vkpublish
