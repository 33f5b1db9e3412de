#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"
#include "packages/Installation.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <map>

namespace tarn::packages {

// What manifests of this installation say about a folder without a marker.
enum class Vouched
{
    Nothing, // none names a package in it
    Present, // one does, and the package is there
    Absent,  // one does, and none of its packages is there
};

// How to handle a missing or empty folder that is not a root yet.
enum class NewRoots
{
    Make,
    Leave, // it is not claimed, which is not a failure
};

// The root folders that this process may change. A folder becomes one by its marker ROOT/.vk-root, a private
// file with the id of the installation, which is also the folder's lock:
//
//   {"format": 1, "installation": "6f1c..."}
//
// An empty marker is an administrator's permission to claim the folder, whatever is in it. A folder without a
// marker is claimed if it is missing or empty, or if manifests vouch for it. A known root without a marker is
// on a disk that is not mounted. All others are refused unchanged.
class Roots
{
public:
    Roots(os::FileSystem& pFileSystem, const QString& pStateDir);

    // Reads which installation this is. To be called first.
    Failure open(NewRoots pNew);
    // True until the installation has its first root: packages of an earlier version may be taken over.
    bool isNewInstallation() const { return mInstallation.roots().isEmpty(); }

    // Claims the folder for the lifetime of this object. pInside: other folders of this installation that may
    // be in it. Kind::Person if this installation must not use the folder; never waits for a lock.
    Failure claim(const QString& pRoot, const QStringList& pInside, const std::function<Vouched()>& pVouched);
    // The same for the install folder, which has to be claimed first. A new installation, such as after the
    // loss of the state folder, reads its id from the marker there.
    Failure claimInstallDir(const QString& pRoot, const QStringList& pInside,
                            const std::function<Vouched()>& pVouched);

    // All of the claimed ones, as absolute paths.
    QStringList paths() const;
    // The claimed folder; -1 for one that is not. Valid as long as this object.
    int fd(const QString& pRoot) const;
    // True for a root that this installation has had, whether it exists now or not.
    bool knows(const QString& pRoot) const { return mInstallation.roots().contains(pRoot); }

    static QString markerName() { return QStringLiteral(".vk-root"); }

private:
    struct Claim;
    struct Root
    {
        os::Descriptor mFolder;
        os::Descriptor mMarker; // locked; closed if another root is the same folder
    };
    Failure make(Claim* pClaim, const std::function<Vouched()>& pVouched);
    Failure openFolder(Claim* pClaim, const std::function<Vouched()>& pVouched);
    Failure take(Claim* pClaim);
    Failure checkFolder(const Claim& pClaim) const;
    Failure readMarker(Claim* pClaim);
    Failure writeMarker(Claim* pClaim);
    Failure lock(Claim* pClaim);
    bool isSameAsAnother(int pMarkerFd) const;

    os::FileSystem& mFileSystem;
    Installation mInstallation;
    NewRoots mNew = NewRoots::Make;
    std::map<QString, Root> mRoots;
};

} // namespace tarn::packages
