#pragma once

#include "trees/DeltaReader.h"
#include "trees/OldFile.h"
#include "trees/TreeBuilder.h"

namespace tarn::trees {

// Makes the text of a package's new index from the old one's text, as the first segments of a delta say. The
// file must not exist. Whether the text is right is for the caller to check. Content if the delta is damaged
// or starts from another text.
Failure makeIndexText(os::FileSystem& pFileSystem, const QString& pDelta, qint64 pLength,
                      const packages::IndexName& pOld, const QString& pOldText, const QString& pNewText);

// Applies the rest of a delta to a tree. Needs some 30 MiB, whatever the sizes of the files are. A segment
// that cannot be made leaves its files missing.
class DeltaApplication
{
public:
    DeltaApplication(TreeBuilder& pBuilder, const InstalledFiles::Package& pOld)
        : mBuilder(pBuilder), mOld(pOld), mFiles(pBuilder.mFileSystem)
    {
    }

    Failure run(const QString& pDelta, qint64 pLength);

private:
    Failure apply(const Segment& pSegment);
    Failure put(const Segment& pSegment, const QByteArray& pMade);
    Failure putPiece(const Piece& pPiece, QByteArrayView pBytes);
    bool readBase(const Segment& pSegment, QByteArray* pTo);
    bool isWanted(const Segment& pSegment) const;
    Failure abandon(const Segment& pSegment);
    Failure discardOpen();

    TreeBuilder& mBuilder;
    const InstalledFiles::Package& mOld;
    OldFiles mFiles;
    os::Descriptor mDelta;
    std::optional<NewFile> mOpen; // the file whose pieces are coming
    qint64 mOpenEntry = 0;        // as the delta counts
};

} // namespace tarn::trees
