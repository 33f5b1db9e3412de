#include "trees/Delta.h"

#include "internal/JsonReader.h"

#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr qint64 sFormat = 1;
constexpr QLatin1String sMethods[] = {"plain"_L1, "zstd"_L1, "bsdiff"_L1};

QByteArray lineOf(const QJsonObject& pObject)
{
    return QJsonDocument(pObject).toJson(QJsonDocument::Compact);
}

QJsonArray toJson(const Pieces& pPieces, const EntrySizes& pSizes)
{
    QJsonArray tArray;
    for (const Piece& tPiece : pPieces) {
        const bool tIsWhole = tPiece.mBytes == ByteRange{0, pSizes[static_cast<size_t>(tPiece.mEntry)]};
        tArray.append(tIsWhole ? QJsonArray{tPiece.mEntry}
                               : QJsonArray{tPiece.mEntry, tPiece.mBytes.mFirst, tPiece.mBytes.mLength});
    }
    return tArray;
}

std::optional<Piece> pieceFrom(const QJsonArray& pArray, const EntrySizes& pSizes)
{
    const qint64 tEntry = pArray.at(0).toInteger(-1);
    if ((pArray.size() != 1 && pArray.size() != 3) || tEntry < 0 ||
        tEntry >= static_cast<qint64>(pSizes.size())) {
        return std::nullopt;
    }
    const qint64 tSize = pSizes[static_cast<size_t>(tEntry)];
    const ByteRange tBytes = pArray.size() == 1
                                 ? ByteRange{0, tSize}
                                 : ByteRange{pArray.at(1).toInteger(-1), pArray.at(2).toInteger(-1)};
    const bool tIsInside = tBytes.mFirst >= 0 && tBytes.mLength > 0 && tBytes.mFirst < tSize &&
                           tBytes.mLength <= tSize - tBytes.mFirst;
    return tIsInside ? std::optional(Piece{tEntry, tBytes}) : std::nullopt;
}

// None for more than pMaxLength bytes together.
std::optional<Pieces> piecesFrom(const QJsonArray& pArray, const EntrySizes& pSizes, qint64 pMaxLength)
{
    if (pArray.size() > DeltaLimits::sPieces) {
        return std::nullopt;
    }
    Pieces tPieces;
    for (const QJsonValue& tValue : pArray) {
        const std::optional<Piece> tPiece = pieceFrom(tValue.toArray(), pSizes);
        if (!tPiece || tPiece->mBytes.mLength > pMaxLength) {
            return std::nullopt;
        }
        pMaxLength -= tPiece->mBytes.mLength;
        tPieces.push_back(*tPiece);
    }
    return tPieces;
}

IndexName indexName(vkcore::JsonReader* pReader, const char* pHash, const char* pLength)
{
    const auto tHash = tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, pReader->text(pHash));
    pReader->require(tHash.has_value(), pHash, u"is not a SHA-256"_s);
    return {tHash.value_or(tuf::Hash()), pReader->integer(pLength, 1, DeltaLimits::sIndexText)};
}

// The text of an index is made from nothing but such a text, and files are made from files.
bool keepsIndexApart(const Segment& pSegment)
{
    const auto tIsOther = [tMakesIndex = pSegment.makesIndex()](const Piece& pPiece) {
        return (pPiece.mEntry == 0) != tMakesIndex;
    };
    return std::none_of(pSegment.mMakes.begin(), pSegment.mMakes.end(), tIsOther) &&
           std::none_of(pSegment.mFrom.begin(), pSegment.mFrom.end(), tIsOther);
}

} // namespace

qint64 totalLength(const Pieces& pPieces)
{
    qint64 tTotal = 0;
    for (const Piece& tPiece : pPieces) {
        tTotal += tPiece.mBytes.mLength;
    }
    return tTotal;
}

QByteArray toLine(const DeltaHeader& pHeader)
{
    return lineOf({{u"format"_s, sFormat},
                   {u"old"_s, QString::fromLatin1(pHeader.mOld.mHash.toHex())},
                   {u"oldBytes"_s, pHeader.mOld.mLength},
                   {u"new"_s, QString::fromLatin1(pHeader.mNew.mHash.toHex())},
                   {u"newBytes"_s, pHeader.mNew.mLength},
                   {u"packed"_s, pHeader.mPacked},
                   {u"segments"_s, pHeader.mSegments}});
}

QByteArray toLine(const Segment& pSegment, const EntrySizes& pOld, const EntrySizes& pNew)
{
    return lineOf({{u"method"_s, sMethods[static_cast<int>(pSegment.mMethod)]},
                   {u"packed"_s, pSegment.mPacked.mLength},
                   {u"makes"_s, toJson(pSegment.mMakes, pNew)},
                   {u"from"_s, toJson(pSegment.mFrom, pOld)}});
}

std::optional<DeltaHeader> deltaHeaderFromLine(const QByteArray& pLine)
{
    QString tFault;
    vkcore::JsonReader tReader(QJsonDocument::fromJson(pLine).object(), &tFault);
    (void)tReader.integer("format", sFormat, sFormat);
    const DeltaHeader tHeader{.mOld = indexName(&tReader, "old", "oldBytes"),
                              .mNew = indexName(&tReader, "new", "newBytes"),
                              .mPacked = tReader.integer("packed", 1),
                              .mSegments = tReader.integer("segments", 1)};
    return tReader.ok() ? std::optional(tHeader) : std::nullopt;
}

std::optional<Segment> segmentFromLine(const QByteArray& pLine, const EntrySizes& pOld,
                                       const EntrySizes& pNew)
{
    QString tFault;
    vkcore::JsonReader tReader(QJsonDocument::fromJson(pLine).object(), &tFault);
    const auto tFound = std::find(std::begin(sMethods), std::end(sMethods), tReader.text("method"));
    const qint64 tPacked = tReader.integer("packed", 1, DeltaLimits::sPacked);
    const auto tMakes = piecesFrom(tReader.value("makes").toArray(), pNew, DeltaLimits::sMakes);
    const auto tFrom = piecesFrom(tReader.value("from").toArray(), pOld, DeltaLimits::sBase);
    if (!tReader.ok() || tFound == std::end(sMethods) || !tMakes || tMakes->empty() || !tFrom) {
        return std::nullopt;
    }
    const Segment tSegment{
        static_cast<PatchMethod>(tFound - std::begin(sMethods)), {0, tPacked}, *tMakes, *tFrom};
    return keepsIndexApart(tSegment) ? std::optional(tSegment) : std::nullopt;
}

} // namespace tarn::trees
