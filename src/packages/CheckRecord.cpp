#include "packages/CheckRecord.h"

#include "packages/PackageFolders.h"
#include "packages/StateRecord.h"

#include <QtCore/QHash>
#include <QtCore/QJsonArray>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

using vkcore::JsonReader;

constexpr int sFormat = 1;
constexpr qint64 sMaxSize = 64 * 1024 * 1024;
constexpr PackageCheck::State sStates[] = {PackageCheck::State::Sound, PackageCheck::State::Damaged,
                                           PackageCheck::State::Unproven};

QJsonObject checkObject(const PackageCheck& pCheck)
{
    QJsonArray tFindings;
    for (const Finding& tFinding : pCheck.mFindings) {
        QJsonObject tJson{{u"path"_s, tFinding.mPath}, {u"problem"_s, tFinding.mProblem}};
        if (tFinding.mExactPath) {
            tJson.insert(u"exactPath"_s, *tFinding.mExactPath);
        }
        tFindings.append(tJson);
    }
    return {{u"folder"_s, pCheck.mFolder},
            {u"state"_s, stateWord(pCheck.mState)},
            {u"checked"_s, dateValue(pCheck.mChecked)},
            {u"files"_s, pCheck.mFiles},
            {u"bytes"_s, pCheck.mBytes},
            {u"count"_s, pCheck.mCount},
            {u"findings"_s, tFindings}};
}

PackageCheck readCheck(JsonReader* pFrom)
{
    PackageCheck tCheck;
    tCheck.mFolder = pFrom->text("folder");
    pFrom->require(PackageFolders::place(tCheck.mFolder).has_value(), "folder", u"is not a package folder"_s);
    const QString tWord = pFrom->text("state");
    const auto tState = std::find_if(std::begin(sStates), std::end(sStates),
                                     [&](auto pState) { return stateWord(pState) == tWord; });
    pFrom->require(tState != std::end(sStates), "state", u"is not a state"_s);
    tCheck.mState = tState == std::end(sStates) ? PackageCheck::State::Unproven : *tState;
    tCheck.mChecked = readDate(*pFrom, "checked");
    tCheck.mFiles = pFrom->integer("files", 0);
    tCheck.mBytes = pFrom->integer("bytes", 0);
    tCheck.mCount = pFrom->integer("count", 0);
    pFrom->each("findings", [&tCheck](JsonReader& pFinding) {
        const QJsonValue tExact = pFinding.json().value("exactPath"_L1);
        tCheck.mFindings.append({pFinding.text("path"), pFinding.text("problem"),
                                 tExact.isString() ? std::optional(tExact.toString()) : std::nullopt});
    });
    return tCheck;
}

} // namespace

QString stateWord(PackageCheck::State pState)
{
    switch (pState) {
    case PackageCheck::State::Sound:
        return u"sound"_s;
    case PackageCheck::State::Damaged:
        return u"damaged"_s;
    case PackageCheck::State::Unproven:
        break;
    }
    return u"unproven"_s;
}

QString problemText(const Finding& pFinding)
{
    static const QHash<QString, QString> sTexts{
        {u"missing"_s, u"is missing"_s},      {u"extra"_s, u"does not belong to the package"_s},
        {u"kind"_s, u"is of another kind"_s}, {u"mode"_s, u"has other permissions or another owner"_s},
        {u"size"_s, u"has another size"_s},   {u"content"_s, u"has other content"_s},
        {u"target"_s, u"leads elsewhere"_s},  {u"unreadable"_s, u"can't be read"_s}};
    return (pFinding.mPath.isEmpty() ? u"."_s : pFinding.mPath) + u' ' +
           sTexts.value(pFinding.mProblem, u"is wrong"_s);
}

const PackageCheck* CheckRecord::find(const QString& pFolder) const
{
    const auto tIt = std::find_if(mPackages.begin(), mPackages.end(),
                                  [&](const PackageCheck& pCheck) { return pCheck.mFolder == pFolder; });
    return tIt == mPackages.end() ? nullptr : &*tIt;
}

void CheckRecord::put(const PackageCheck& pCheck)
{
    mPackages.removeIf([&](const PackageCheck& pOther) { return pOther.mFolder == pCheck.mFolder; });
    mPackages.append(pCheck);
}

bool CheckRecord::forgetRestored(const std::function<bool(const QString&)>& pStands)
{
    return mPackages.removeIf([&pStands](const PackageCheck& pCheck) {
        const bool tWasMissing =
            std::any_of(pCheck.mFindings.begin(), pCheck.mFindings.end(), [](const Finding& pFinding) {
                return pFinding.mPath.isEmpty() && pFinding.mProblem == "missing"_L1;
            });
        return tWasMissing && pStands(pCheck.mFolder);
    }) > 0;
}

bool CheckRecord::keepOnly(const QStringList& pFolders)
{
    return mPackages.removeIf(
               [&](const PackageCheck& pCheck) { return !pFolders.contains(pCheck.mFolder); }) > 0;
}

QSet<QString> CheckRecord::damagedFolders() const
{
    QSet<QString> tFolders;
    for (const PackageCheck& tCheck : mPackages) {
        if (tCheck.mState == PackageCheck::State::Damaged) {
            tFolders.insert(tCheck.mFolder);
        }
    }
    return tFolders;
}

QByteArray CheckRecord::toBytes() const
{
    QJsonArray tPackages;
    for (const PackageCheck& tCheck : mPackages) {
        tPackages.append(checkObject(tCheck));
    }
    return QJsonDocument(QJsonObject{{u"format"_s, sFormat},
                                     {u"since"_s, dateValue(mSince)},
                                     {u"began"_s, dateValue(mBegan)},
                                     {u"ended"_s, dateValue(mEnded)},
                                     {u"packages"_s, tPackages}})
        .toJson();
}

Result<CheckRecord> CheckRecord::fromBytes(const QByteArray& pBytes)
{
    return recordFrom<CheckRecord>(pBytes, sFormat, [](JsonReader& pReader, CheckRecord* pTo) {
        pTo->mSince = readDate(pReader, "since");
        pTo->mBegan = readDate(pReader, "began");
        pTo->mEnded = readDate(pReader, "ended");
        pReader.each("packages",
                     [pTo](JsonReader& pPackage) { pTo->mPackages.append(readCheck(&pPackage)); });
    });
}

Failure CheckRecordFile::open(const QString& pStateDir)
{
    mPath = pStateDir + u"/damage.json"_s;
    const Result<CheckRecord> tRecord = loadRecord<CheckRecord>(mFileSystem, mPath, sMaxSize);
    mRecord = tRecord.valueOr({});
    return tRecord.failure();
}

Failure CheckRecordFile::write()
{
    return storeRecord(mFileSystem, mPath, mRecord.toBytes());
}

} // namespace tarn::packages
