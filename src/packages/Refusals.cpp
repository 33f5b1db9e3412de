#include "packages/Refusals.h"

#include "packages/StateRecord.h"

#include <QtCore/QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

using vkcore::JsonReader;

constexpr int sFormat = 1;
constexpr qint64 sMaxSize = 16 * 1024 * 1024;

QString pathIn(const QString& pStateDir)
{
    return pStateDir + u"/refused.json"_s;
}

Refusal readRefusal(JsonReader* pFrom)
{
    const auto tHash = tuf::Hash::fromHex(pFrom->text("hash"));
    pFrom->require(tHash.has_value(), "hash", u"is not a hash"_s);
    const QDateTime tDate = readDate(*pFrom, "date");
    pFrom->require(tDate.isValid(), "date", u"is not a date"_s);
    return {.mName = pFrom->text("package"),
            .mVersion = pFrom->text("version"),
            .mHash = tHash.value_or(tuf::Hash()),
            .mReason = pFrom->text("reason"),
            .mDate = tDate};
}

} // namespace

const Refusal* Refusals::find(const tuf::Hash& pHash) const
{
    const auto tIt = std::find_if(mAll.begin(), mAll.end(),
                                  [&](const Refusal& pRefusal) { return pRefusal.mHash == pHash; });
    return tIt == mAll.end() ? nullptr : &*tIt;
}

void Refusals::add(const Refusal& pRefusal)
{
    if (!has(pRefusal.mHash)) {
        mAll.append(pRefusal);
        mAll.remove(0, std::max<qsizetype>(0, mAll.size() - sMost));
    }
}

bool Refusals::lift(const tuf::Hash& pHash)
{
    return mAll.removeIf([&](const Refusal& pRefusal) { return pRefusal.mHash == pHash; }) > 0;
}

qsizetype Refusals::lift(const QString& pName)
{
    return mAll.removeIf([&](const Refusal& pRefusal) { return pRefusal.mName == pName; });
}

QByteArray Refusals::toBytes() const
{
    QJsonArray tAll;
    for (const Refusal& tRefusal : mAll) {
        tAll.append(QJsonObject{{u"package"_s, tRefusal.mName},
                                {u"version"_s, tRefusal.mVersion},
                                {u"hash"_s, QString::fromLatin1(tRefusal.mHash.toHex())},
                                {u"reason"_s, tRefusal.mReason},
                                {u"date"_s, dateValue(tRefusal.mDate)}});
    }
    return QJsonDocument(QJsonObject{{u"format"_s, sFormat}, {u"refused"_s, tAll}}).toJson();
}

Result<Refusals> Refusals::fromBytes(const QByteArray& pBytes)
{
    return recordFrom<Refusals>(pBytes, sFormat, [](JsonReader& pReader, Refusals* pTo) {
        pReader.each("refused", [pTo](JsonReader& pEntry) { pTo->add(readRefusal(&pEntry)); });
    });
}

Result<Refusals> Refusals::load(os::FileSystem& pFileSystem, const QString& pStateDir)
{
    return loadRecord<Refusals>(pFileSystem, pathIn(pStateDir), sMaxSize);
}

Result<Refusals> Refusals::loadOrSetAside(os::FileSystem& pFileSystem, const QString& pStateDir,
                                          QString* pWarning)
{
    pWarning->clear();
    Result<Refusals> tLoaded = load(pFileSystem, pStateDir);
    if (tLoaded || tLoaded.failure().mKind != Failure::Kind::Content) {
        return tLoaded;
    }
    if (const Failure tFailure = setAside(pFileSystem, pathIn(pStateDir), tLoaded.failure(), pWarning)) {
        return tFailure;
    }
    *pWarning += u", and the packages that were refused may be installed again"_s;
    return Refusals();
}

Failure Refusals::store(os::FileSystem& pFileSystem, const QString& pStateDir) const
{
    return storeRecord(pFileSystem, pathIn(pStateDir), toBytes());
}

} // namespace tarn::packages
