#pragma once

#include "packages/TreeFiles.h"

#include <QtCore/QLatin1StringView>
#include <QtCore/QString>

#include <array>

namespace tarn::packages {

// The signed files that say something about a package, in the order of sAttachmentForms.
enum class AttachmentKind
{
    Advisory,   // what a security fix is about, for people: plain text in UTF-8
    Provenance, // how the package was built
    Sbom,       // what it consists of
};

struct AttachmentForm
{
    AttachmentKind mKind;
    QLatin1StringView mWord; // in descriptions and on the publisher's command line; the file's name ends so
    qint64 mMaxLength;       // bytes
};

inline constexpr std::array sAttachmentForms{
    AttachmentForm{AttachmentKind::Advisory, QLatin1StringView("advisory"), qint64(64) * 1024},
    AttachmentForm{AttachmentKind::Provenance, QLatin1StringView("provenance"), qint64(64) * 1024 * 1024},
    AttachmentForm{AttachmentKind::Sbom, QLatin1StringView("sbom"), qint64(64) * 1024 * 1024},
};

inline const AttachmentForm& formOf(AttachmentKind pKind)
{
    return sAttachmentForms[static_cast<size_t>(pKind)];
}

// Such a file: targets/SHA256.WORD.
struct Attachment
{
    AttachmentKind mKind = AttachmentKind::Advisory;
    SideFile mFile;

    QString name() const { return QString::fromLatin1(mFile.mHash.toHex()) + u'.' + formOf(mKind).mWord; }
    bool operator==(const Attachment&) const = default;
};

// True for what may be an advisory: UTF-8 with at least one visible character, and without control characters
// but tabs and line ends.
bool isAdvisory(QByteArrayView pText);

} // namespace tarn::packages
