#pragma once

#include "record/Draft.h"
#include "record/TargetList.h"

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

class KeyFolder;

// The list of packages that is published, and the one that should be.
struct TargetsState
{
    TargetList mOffered;
    bool mIsUsable = false; // machines accept the published one
    bool mIsFresh = false;  // and it is to be kept
    QDateTime mNow;
};

// Where the next publication has its list of packages from.
struct TargetsChoice
{
    enum class Source
    {
        Published, // it stays
        KeysHere,
        Draft,
    };

    Source mSource = Source::Published;
    Draft mDraft; // signed

    bool isNew() const { return mSource != Source::Published; }
};

// A draft that has its signatures comes first. Failure::Kind::Person if a new list is needed, and signatures
// are missing. *pNotes: what the publisher should know of a draft that stays.
Result<TargetsChoice> chooseTargets(const KeyFolder& pKeys, const TargetsState& pState, QStringList* pNotes);

// The file of a signed draft; if it was written before, as it was then: a snapshot may have its hash.
QByteArray fileOfDraft(os::FileSystem& pFileSystem, const KeyFolder& pKeys, const QString& pRepository,
                       const Draft& pDraft, const QDateTime& pNow);

} // namespace tarn::vkpublish
