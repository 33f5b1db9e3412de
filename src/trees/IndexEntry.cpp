#include "trees/IndexEntry.h"

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

// The members of one line. What is missing or has another type makes the whole line invalid.
class Line
{
public:
    explicit Line(const QByteArray& pLine)
    {
        const QJsonDocument tDocument = QJsonDocument::fromJson(pLine);
        mIsValid = tDocument.isObject();
        mObject = tDocument.object();
    }

    qint64 size(QLatin1String pName)
    {
        const qint64 tValue = mObject.value(pName).toInteger(-1);
        mIsValid = mIsValid && tValue >= 0;
        return tValue;
    }
    qint64 time(QLatin1String pName)
    {
        const QJsonValue tValue = mObject.value(pName);
        mIsValid = mIsValid && tValue.isDouble() && tValue.toInteger(0) == tValue.toInteger(1);
        return tValue.toInteger();
    }
    bool flag(QLatin1String pName)
    {
        const QJsonValue tValue = mObject.value(pName);
        mIsValid = mIsValid && (tValue.isUndefined() || tValue.isBool());
        return tValue.toBool();
    }
    QString text(QLatin1String pName)
    {
        const QString tText = mObject.value(pName).toString();
        mIsValid = mIsValid && !tText.isEmpty() && tText.isValidUtf16();
        return tText;
    }
    tuf::Hash hash(QLatin1String pName)
    {
        const auto tHash = tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, text(pName));
        mIsValid = mIsValid && tHash;
        return tHash.value_or(tuf::Hash());
    }
    EntryKind kind(QLatin1String pName)
    {
        const QString tText = text(pName);
        const auto tFound = std::find(std::begin(sKinds), std::end(sKinds), tText);
        mIsValid = mIsValid && tFound != std::end(sKinds);
        return mIsValid ? static_cast<EntryKind>(tFound - std::begin(sKinds)) : EntryKind::Folder;
    }
    void require(bool pCondition) { mIsValid = mIsValid && pCondition; }

    bool isValid() const { return mIsValid; }

private:
    QJsonObject mObject;
    bool mIsValid = false;
};

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
    Line tLine(pLine);
    tLine.require(tLine.size("format"_L1) == sFormat);
    const IndexHeader tHeader{.mFrames = tLine.size("frames"_L1),
                              .mEntries = tLine.size("entries"_L1),
                              .mBytes = tLine.size("bytes"_L1)};
    return tLine.isValid() ? std::optional(tHeader) : std::nullopt;
}

std::optional<Frame> frameFromLine(const QByteArray& pLine)
{
    Line tLine(pLine);
    const Frame tFrame{.mPacked = tLine.size("packed"_L1),
                       .mUnpacked = tLine.size("unpacked"_L1),
                       .mHash = tLine.hash("sha256"_L1)};
    return tLine.isValid() ? std::optional(tFrame) : std::nullopt;
}

std::optional<IndexEntry> entryFromLine(const QByteArray& pLine, qint64 pEnd)
{
    Line tLine(pLine);
    IndexEntry tEntry;
    tEntry.mPath = tLine.text("path"_L1).toUtf8();
    tEntry.mKind = tLine.kind("kind"_L1);
    if (tEntry.mKind == EntryKind::Link) {
        tEntry.mTarget = tLine.text("target"_L1).toUtf8();
    }
    if (tEntry.mKind == EntryKind::File) {
        tEntry.mIsExecutable = tLine.flag("executable"_L1);
        tEntry.mTime = tLine.time("time"_L1);
        tEntry.mSize = tLine.size("size"_L1);
        tEntry.mHash = tLine.hash("sha256"_L1);
        const qint64 tGap = tLine.size("gap"_L1);
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
