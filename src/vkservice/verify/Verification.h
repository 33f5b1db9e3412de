#pragma once

#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "verify/VerifyRequest.h"

namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os
namespace tarn::trees {
class IndexStore;
}

namespace tarn::vkservice::verify {

// Both are called on the thread of the verification.
class VerificationListener
{
public:
    virtual ~VerificationListener() = default;
    virtual void onPackage(const packages::PackageCheck& pCheck) = 0;
    virtual void onProgress(const VerifyProgress& pProgress) = 0;
};

// The job of the thread: compares each package of the current generation with its index. It changes nothing.
class Verification
{
public:
    Verification(const VerifyRequest& pRequest, os::FileSystem& pFileSystem, const os::AbortFlag& pAbort,
                 VerificationListener& pListener);

    VerifyOutcome run();

private:
    Failure confine(const packages::Manifest& pInstalled) const;
    bool isMounted(const packages::InstalledPackage& pPackage) const;
    Result<packages::PackageCheck> check(const packages::InstalledPackage& pPackage,
                                         const trees::IndexStore& pIndexes);
    Result<packages::PackageCheck> compare(const packages::InstalledPackage& pPackage, const QString& pIndex,
                                           packages::PackageCheck pTo);

    const VerifyRequest& mRequest;
    os::FileSystem& mFileSystem;
    const os::AbortFlag& mAbort;
    VerificationListener& mListener;
    packages::PackageFolders mFolders;
    VerifyProgress mProgress;
};

} // namespace tarn::vkservice::verify
