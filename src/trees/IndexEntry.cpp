#include "trees/IndexEntry.h"

#include "trees/IndexLine.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>
#include <limits>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr qint64 sFormat = 1;
constexpr QLatin1String sKinds[] = {"folder"_L1, "file"_L1, "link"_L1};

QByteArray lineOf(const QJsonObject& pObject)
{
    return QJsonDocument(pObject).toJson(QJsonDocument::Compact);
}

tuf::Hash hashIn(IndexLine* pLine)
{
    const QByteArray tHex = pLine->text("sha256");
    const auto tIsLowerHex = [](char pChar) {
        return (pChar >= '0' && pChar <= '9') || (pChar >= 'a' && pChar <= 'f');
    };
    const bool tIsHex = tHex.size() % 2 == 0 && std::all_of(tHex.begin(), tHex.end(), tIsLowerHex);
    const auto tHash =
        tuf::Hash::fromBytes(tuf::HashAlgorithm::Sha256, tIsHex ? QByteArray::fromHex(tHex) : QByteArray());
    pLine->require(tHash.has_value());
    return tHash.value_or(tuf::Hash());
}

EntryKind kindIn(IndexLine* pLine)
{
    const QByteArray tText = pLine->text("kind");
    const auto tFound = std::find(std::begin(sKinds), std::end(sKinds), QLatin1String(tText));
    pLine->require(tFound != std::end(sKinds));
    return pLine->isValid() ? static_cast<EntryKind>(tFound - std::begin(sKinds)) : EntryKind::Folder;
}

} // namespace

QByteArray toLine(const IndexHeader& pHeader)
{
    return lineOf({{u"format"_s, sFormat},
                   {u"frames"_s, pHeader.mFrames},
                   {u"entries"_s, pHeader.mEntries},
                   {u"bytes"_s, pHeader.mBytes}});
}

QByteArray toLine(const Frame& pFrame)
{
    return lineOf({{u"packed"_s, pFrame.mPacked},
                   {u"unpacked"_s, pFrame.mUnpacked},
                   {u"sha256"_s, QString::fromLatin1(pFrame.mHash.toHex())}});
}

QByteArray toLine(const IndexEntry& pEntry, qint64 pEnd)
{
    QJsonObject tObject{{u"path"_s, QString::fromUtf8(pEntry.mPath)},
                        {u"kind"_s, sKinds[static_cast<int>(pEntry.mKind)]}};
    if (pEntry.mKind == EntryKind::Link) {
        tObject.insert(u"target"_s, QString::fromUtf8(pEntry.mTarget));
    }
    if (pEntry.mKind == EntryKind::File) {
        if (pEntry.mIsExecutable) {
            tObject.insert(u"executable"_s, true);
        }
        tObject.insert(u"time"_s, pEntry.mTime);
        tObject.insert(u"size"_s, pEntry.mSize);
        tObject.insert(u"sha256"_s, QString::fromLatin1(pEntry.mHash.toHex()));
        tObject.insert(u"gap"_s, pEntry.mAt - pEnd);
    }
    return lineOf(tObject);
}

std::optional<IndexHeader> headerFromLine(const QByteArray& pLine)
{
    IndexLine tLine(pLine);
    tLine.require(tLine.size("format") == sFormat);
    const IndexHeader tHeader{
        .mFrames = tLine.size("frames"), .mEntries = tLine.size("entries"), .mBytes = tLine.size("bytes")};
    return tLine.isValid() ? std::optional(tHeader) : std::nullopt;
}

std::optional<Frame> frameFromLine(const QByteArray& pLine)
{
    IndexLine tLine(pLine);
    const Frame tFrame{
        .mPacked = tLine.size("packed"), .mUnpacked = tLine.size("unpacked"), .mHash = hashIn(&tLine)};
    return tLine.isValid() ? std::optional(tFrame) : std::nullopt;
}

std::optional<IndexEntry> entryFromLine(const QByteArray& pLine, qint64 pEnd)
{
    IndexLine tLine(pLine);
    IndexEntry tEntry;
    tEntry.mPath = tLine.text("path");
    tEntry.mKind = kindIn(&tLine);
    if (tEntry.mKind == EntryKind::Link) {
        tEntry.mTarget = tLine.text("target");
    }
    if (tEntry.mKind == EntryKind::File) {
        tEntry.mIsExecutable = tLine.flag("executable");
        tEntry.mTime = tLine.time("time");
        tEntry.mSize = tLine.size("size");
        tEntry.mHash = hashIn(&tLine);
        const qint64 tGap = tLine.size("gap");
        tLine.require(tGap <= std::numeric_limits<qint64>::max() - pEnd);
        tEntry.mAt = tLine.isValid() ? pEnd + tGap : 0;
    }
    return tLine.isValid() ? std::optional(tEntry) : std::nullopt;
}

bool comesBefore(const QByteArrayList& pNames, const QByteArrayList& pOther)
{
    return std::lexicographical_compare(pNames.begin(), pNames.end(), pOther.begin(), pOther.end());
}

} // namespace tarn::trees
