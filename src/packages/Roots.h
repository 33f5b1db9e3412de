#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"
#include "packages/Installation.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <map>

namespace tarn::packages {

// What manifests of this installation say of a folder that has no marker.
enum class Vouched
{
    Nothing, // none names a package in it
    Present, // one does, and the package is there
    Absent,  // one does, and none of its packages is there
};

// What becomes of a missing or empty folder that is not a root yet.
enum class NewRoots
{
    Make,
    Leave, // it is not claimed, which is not a failure
};

// The root folders that this process may change. A folder becomes one by its marker ROOT/.vk-root, a file
// with the id of the installation, which is also the folder's lock and open to nobody else:
//
//   {"format": 1, "installation": "6f1c..."}
//
// An empty file under that name is an administrator's order to take the folder, whatever is in it. A folder
// without a marker is taken where it is missing or empty, or where manifests vouch for it; a root that the
// installation knows and that has no marker now is a disk that is not mounted. Everything else is refused,
// and then nothing in the folder has been touched.
class Roots
{
public:
    Roots(os::FileSystem& pFileSystem, const QString& pStateDir);

    // Reads which installation this is. To be called first.
    Failure open(NewRoots pNew);
    // True until the installation has had its first root: what an earlier version installed may be taken
    // over.
    bool isNewInstallation() const { return mInstallation.roots().isEmpty(); }

    // Takes the folder for as long as this object lives. pInside: other folders of this installation that may
    // lie in it. Kind::Person where the folder is not this installation's to use; never waits for a lock.
    Failure claim(const QString& pRoot, const QStringList& pInside, const std::function<Vouched()>& pVouched);
    // The same for the install folder, the first to be claimed. What is installed belongs to whoever has that
    // folder: a new installation, as after the loss of the state folder, takes its id from the marker there.
    Failure claimInstallDir(const QString& pRoot, const QStringList& pInside,
                            const std::function<Vouched()>& pVouched);

    // All of the claimed ones, as absolute paths.
    QStringList paths() const;
    // The claimed folder; -1 for one that is not. Valid as long as this object.
    int fd(const QString& pRoot) const;
    // True for a root that this installation has had, be it there now or not.
    bool knows(const QString& pRoot) const { return mInstallation.roots().contains(pRoot); }

    static QString markerName() { return QStringLiteral(".vk-root"); }

private:
    struct Claim;
    struct Root
    {
        os::Descriptor mFolder;
        os::Descriptor mMarker; // locked; closed where another root is the same folder
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
