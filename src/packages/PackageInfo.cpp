#include "packages/PackageInfo.h"

#include "internal/JsonReader.h"
#include "internal/LangStringJson.h"

#include <QtCore/QJsonArray>
#include <QtCore/QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::packages {

using vkcore::JsonReader;
using vkcore::LangString;

namespace {

constexpr qsizetype sMaxTitle = 1000;
constexpr qsizetype sMaxReport = 64 * 1024;
constexpr qsizetype sMaxPath = 4096;
constexpr qsizetype sMaxEntries = 1000; // languages of a text, required packages, executables

constexpr qsizetype sMaxDeltas = 16;
constexpr qint64 sMaxIndexText = qint64(4) * 1024 * 1024 * 1024;

const QLatin1String sKinds[] = {"application"_L1, "data"_L1};

bool isLanguage(const QString& pText)
{
    static const QRegularExpression sFormat(u"\\A[A-Za-z]{2,8}([_-][A-Za-z0-9]{1,8}){0,3}\\z"_s);
    return sFormat.match(pText).hasMatch();
}

bool isRelativePath(const QString& pText)
{
    if (pText.size() > sMaxPath || pText.contains(QChar(0))) {
        return false;
    }
    for (const QString& tPart : pText.split(u'/')) {
        if (tPart.isEmpty() || tPart == "."_L1 || tPart == ".."_L1) {
            return false;
        }
    }
    return true;
}

void require(JsonReader* pReader, bool pHolds, const char* pName)
{
    pReader->require(pHolds, pName, u"is not valid"_s);
}

// Empty where the member is missing, as with all but the name, the kind and the version.
QString readText(JsonReader* pReader, const char* pName)
{
    return pReader->has(pName) ? pReader->text(pName) : QString();
}

QStringList readTexts(JsonReader* pReader, const char* pName, bool (*pIsValid)(const QString&))
{
    const QStringList tTexts = pReader->has(pName) ? pReader->texts(pName) : QStringList();
    require(pReader, tTexts.size() <= sMaxEntries && std::all_of(tTexts.begin(), tTexts.end(), pIsValid),
            pName);
    return tTexts;
}

LangString readLangString(JsonReader* pReader, const char* pName, qsizetype pMaxLength)
{
    if (!pReader->has(pName)) {
        return {};
    }
    const QJsonObject tObject = pReader->object(pName).json();
    require(pReader, tObject.size() <= sMaxEntries, pName);
    for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
        require(pReader,
                tIt.value().isString() && isLanguage(tIt.key()) &&
                    tIt.value().toString().size() <= pMaxLength,
                pName);
    }
    return vkcore::langStringFrom(tObject);
}

Kind readKind(JsonReader* pReader)
{
    const QString tText = pReader->text("kind");
    require(pReader, tText == sKinds[0] || tText == sKinds[1], "kind");
    return tText == sKinds[1] ? Kind::Data : Kind::Application;
}

vkcore::EnhVersion readVersion(JsonReader* pReader)
{
    bool tOk = false;
    const vkcore::Version tVersion = vkcore::Version::fromString(pReader->text("version"), &tOk);
    require(pReader, tOk, "version");
    const QString tText = readText(pReader, "date");
    const QDateTime tDate = QDateTime::fromString(tText, Qt::ISODate);
    require(pReader, tText.isEmpty() || tDate.isValid(), "date");
    return {tVersion, tDate};
}

tuf::Hash readHash(JsonReader* pReader)
{
    const auto tHash = tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, pReader->text("sha256"));
    require(pReader, tHash.has_value(), "sha256");
    return tHash.value_or(tuf::Hash());
}

SideFile readSideFile(JsonReader* pReader)
{
    return {.mLength = pReader->integer("length", 1), .mHash = readHash(pReader)};
}

IndexName readIndexName(JsonReader pReader)
{
    return {.mHash = readHash(&pReader), .mLength = pReader.integer("length", 1, sMaxIndexText)};
}

std::optional<IndexFile> readIndex(JsonReader* pReader)
{
    if (!pReader->has("index")) {
        return std::nullopt;
    }
    JsonReader tIndex = pReader->object("index");
    return IndexFile{.mFile = readSideFile(&tIndex), .mText = readIndexName(tIndex.object("text"))};
}

QList<DeltaFile> readDeltas(JsonReader* pReader)
{
    QList<DeltaFile> tDeltas;
    if (pReader->has("deltas")) {
        pReader->each("deltas", [&tDeltas](JsonReader& pDelta) {
            tDeltas.append({.mFile = readSideFile(&pDelta), .mFrom = readIndexName(pDelta.object("from"))});
        });
        require(pReader, tDeltas.size() <= sMaxDeltas, "deltas");
    }
    return tDeltas;
}

// Of the kinds that are known here.
QList<Attachment> readAttachments(JsonReader* pReader)
{
    QList<Attachment> tAttachments;
    if (pReader->has("attachments")) {
        JsonReader tMembers = pReader->object("attachments");
        for (const AttachmentForm& tForm : sAttachmentForms) {
            if (tMembers.has(tForm.mWord.data())) {
                JsonReader tFile = tMembers.object(tForm.mWord.data());
                tAttachments.append({.mKind = tForm.mKind, .mFile = readSideFile(&tFile)});
                require(&tFile, tAttachments.last().mFile.mLength <= tForm.mMaxLength, "length");
            }
        }
    }
    return tAttachments;
}

QJsonObject toJson(const tuf::Hash& pHash, qint64 pLength)
{
    return {{u"length"_s, pLength}, {u"sha256"_s, QString::fromLatin1(pHash.toHex())}};
}

QJsonObject toJson(const SideFile& pFile, QLatin1String pTextName, const IndexName& pText)
{
    QJsonObject tObject = toJson(pFile.mHash, pFile.mLength);
    tObject.insert(pTextName, toJson(pText.mHash, pText.mLength));
    return tObject;
}

PackageInfo readInfo(JsonReader* pReader)
{
    PackageInfo tInfo;
    tInfo.mName = pReader->text("name");
    require(pReader, isPackageName(tInfo.mName), "name");
    tInfo.mKind = readKind(pReader);
    tInfo.mVersion = readVersion(pReader);
    tInfo.mTitle = readLangString(pReader, "title", sMaxTitle);
    tInfo.mLanguage = readText(pReader, "language");
    require(pReader, tInfo.mLanguage.isEmpty() || isLanguage(tInfo.mLanguage), "language");
    tInfo.mRequires = readTexts(pReader, "requires", isPackageName);
    tInfo.mExecutables = readTexts(pReader, "executables", isRelativePath);
    tInfo.mCheck = readText(pReader, "check");
    require(pReader, !pReader->has("check") || isRelativePath(tInfo.mCheck), "check");
    tInfo.mReport = readLangString(pReader, "report", sMaxReport);
    tInfo.mInstalledSize = pReader->has("installedSize") ? pReader->integer("installedSize", 0) : 0;
    tInfo.mIndex = readIndex(pReader);
    tInfo.mDeltas = readDeltas(pReader);
    tInfo.mAttachments = readAttachments(pReader);
    tInfo.mRelease = readRelease(pReader);
    const auto& tSince = tInfo.mRelease.mSecuritySince;
    require(pReader, !tSince || *tSince <= tInfo.mVersion.version(), "security");
    return tInfo;
}

} // namespace

bool isPackageName(const QString& pText)
{
    static const QRegularExpression sFormat(u"\\A[a-z0-9][a-z0-9._+-]{0,99}\\z"_s);
    return sFormat.match(pText).hasMatch();
}

const Attachment* PackageInfo::attachment(AttachmentKind pKind) const
{
    const auto tFound =
        std::find_if(mAttachments.begin(), mAttachments.end(),
                     [pKind](const Attachment& pAttachment) { return pAttachment.mKind == pKind; });
    return tFound == mAttachments.end() ? nullptr : &*tFound;
}

QJsonObject PackageInfo::toJson() const
{
    QJsonObject tObject{
        {u"name"_s, mName},
        {u"kind"_s, sKinds[mKind == Kind::Data ? 1 : 0]},
        {u"version"_s, mVersion.version().toString()},
        {u"title"_s, vkcore::toJson(mTitle)},
        {u"installedSize"_s, mInstalledSize},
    };
    if (mVersion.date().isValid()) {
        tObject.insert(u"date"_s, mVersion.date().toUTC().toString(Qt::ISODate));
    }
    if (!mLanguage.isEmpty()) {
        tObject.insert(u"language"_s, mLanguage);
    }
    if (!mRequires.isEmpty()) {
        tObject.insert(u"requires"_s, QJsonArray::fromStringList(mRequires));
    }
    if (!mExecutables.isEmpty()) {
        tObject.insert(u"executables"_s, QJsonArray::fromStringList(mExecutables));
    }
    if (!mCheck.isEmpty()) {
        tObject.insert(u"check"_s, mCheck);
    }
    if (!mReport.isEmpty()) {
        tObject.insert(u"report"_s, vkcore::toJson(mReport));
    }
    if (mIndex) {
        tObject.insert(u"index"_s, packages::toJson(mIndex->mFile, "text"_L1, mIndex->mText));
    }
    if (!mDeltas.isEmpty()) {
        QJsonArray tDeltas;
        for (const DeltaFile& tDelta : mDeltas) {
            tDeltas.append(packages::toJson(tDelta.mFile, "from"_L1, tDelta.mFrom));
        }
        tObject.insert(u"deltas"_s, tDeltas);
    }
    if (!mAttachments.isEmpty()) {
        QJsonObject tAttachments;
        for (const Attachment& tAttachment : mAttachments) {
            tAttachments.insert(formOf(tAttachment.mKind).mWord,
                                packages::toJson(tAttachment.mFile.mHash, tAttachment.mFile.mLength));
        }
        tObject.insert(u"attachments"_s, tAttachments);
    }
    write(mRelease, &tObject);
    return mRelease.isRestricted() ? QJsonObject{{u"name"_s, mName}, {u"package"_s, tObject}} : tObject;
}

Result<PackageInfo> PackageInfo::fromJson(const QJsonObject& pFrom)
{
    QString tFault;
    JsonReader tReader(pFrom, &tFault);
    const bool tIsRestricted = tReader.has("package");
    JsonReader tPackage = tIsRestricted ? tReader.object("package") : tReader;
    const PackageInfo tInfo = readInfo(&tPackage);
    require(&tReader, !tIsRestricted || tReader.text("name") == tInfo.mName, "name");
    return tReader.ok() ? Result<PackageInfo>(tInfo) : Failure::content(tFault);
}

QString archiveName(const PackageInfo& pInfo)
{
    const QString tLanguage = pInfo.mLanguage.isEmpty() ? QString() : u'-' + pInfo.mLanguage;
    return u"%1-%2%3.tar.zst"_s.arg(pInfo.mName, pInfo.mVersion.version().toString(), tLanguage);
}

} // namespace tarn::packages
