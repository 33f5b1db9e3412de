#include "evidence/Attachments.h"

#include "publication/FileMatch.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::AttachmentForm;
using packages::AttachmentKind;

namespace {

constexpr mode_t sFileMode = 0644;

const AttachmentForm* formNamed(QStringView pWord)
{
    const auto tFound = std::find_if(packages::sAttachmentForms.begin(), packages::sAttachmentForms.end(),
                                     [pWord](const AttachmentForm& pForm) { return pForm.mWord == pWord; });
    return tFound == packages::sAttachmentForms.end() ? nullptr : &*tFound;
}

Failure wrongForm(const QString& pValue)
{
    return {
        Failure::Kind::Person,
        u"--attach takes advisory=FILE, provenance=FILE or sbom=FILE, each once, not \"%1\""_s.arg(pValue)};
}

Failure notAnAdvisory(const QString& pPath)
{
    return Failure::content(
        u"%1 is not an advisory: it has to be plain text in UTF-8 without control characters"_s.arg(pPath));
}

Result<AttachedFile> readFile(os::FileSystem& pFileSystem, const AttachmentForm& pForm, const QString& pPath)
{
    const Result<QByteArray> tBytes = os::readFile(pFileSystem, pPath, pForm.mMaxLength);
    if (!tBytes) {
        return tBytes.failure();
    }
    if (tBytes->isEmpty()) {
        return Failure::content(u"%1 is empty"_s.arg(pPath));
    }
    if (pForm.mKind == AttachmentKind::Advisory && !packages::isAdvisory(*tBytes)) {
        return notAnAdvisory(pPath);
    }
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    tHasher.add(*tBytes);
    return AttachedFile{
        .mAttachment = {.mKind = pForm.mKind,
                        .mFile = {.mLength = tBytes->size(), .mHash = tHasher.result().front()}},
        .mBytes = *tBytes};
}

} // namespace

Result<QList<AttachedFile>> readAttachments(os::FileSystem& pFileSystem, const QStringList& pValues)
{
    QMap<AttachmentKind, AttachedFile> tFiles;
    for (const QString& tValue : pValues) {
        const qsizetype tEquals = tValue.indexOf(u'=');
        const AttachmentForm* tForm = formNamed(QStringView(tValue).left(std::max<qsizetype>(tEquals, 0)));
        if (tForm == nullptr || tEquals + 1 == tValue.size() || tFiles.contains(tForm->mKind)) {
            return wrongForm(tValue);
        }
        const Result<AttachedFile> tFile = readFile(pFileSystem, *tForm, tValue.mid(tEquals + 1));
        if (!tFile) {
            return tFile.failure();
        }
        tFiles.insert(tForm->mKind, *tFile);
    }
    return tFiles.values();
}

Failure writeAttachments(os::FileSystem& pFileSystem, const QString& pTargets,
                         const QList<AttachedFile>& pFiles, packages::PackageInfo* pInfo)
{
    for (const AttachedFile& tFile : pFiles) {
        if (Failure tFailure = os::replaceFile(pFileSystem, pTargets + u'/' + tFile.mAttachment.name(),
                                               tFile.mBytes, sFileMode)) {
            return tFailure;
        }
        pInfo->mAttachments.append(tFile.mAttachment);
    }
    return {};
}

Failure checkAttachment(const QString& pTargets, const packages::Attachment& pAttachment)
{
    const QString tPath = pTargets + u'/' + pAttachment.name();
    if (Failure tFailure = fileMatches(tPath, pAttachment.mFile.mLength, {pAttachment.mFile.mHash})) {
        return tFailure;
    }
    const qint64 tMost = packages::formOf(pAttachment.mKind).mMaxLength;
    const bool tIsSound = pAttachment.mKind != AttachmentKind::Advisory ||
                          packages::isAdvisory(os::readFile(os::realFileSystem(), tPath, tMost).valueOr({}));
    return tIsSound ? Failure() : notAnAdvisory(tPath);
}

} // namespace tarn::vkpublish
