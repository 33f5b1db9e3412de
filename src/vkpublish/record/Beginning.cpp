#include "record/Beginning.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QRegularExpression>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

const QString sBegun = u"begun"_s;
const QString sRepository = u"repository"_s;
const QString sRoot = u"root"_s;
const QString sKeys = u"keys"_s;

// They are removed, so no other name is one.
bool isKeyName(const QString& pName)
{
    static const QRegularExpression sName(u"\\A[a-z]+-[0-9a-f]{16}\\.pem\\z"_s);
    return sName.match(pName).hasMatch();
}

} // namespace

QByteArray Beginning::toJson() const
{
    const QJsonObject tBegun{{sRepository, mRepository},
                             {sRoot, QString::fromUtf8(mRoot)},
                             {sKeys, QJsonArray::fromStringList(mKeys)}};
    return QJsonDocument(QJsonObject{{u"format"_s, 2}, {sBegun, tBegun}}).toJson();
}

std::optional<Beginning> Beginning::fromJson(const QByteArray& pText)
{
    const QJsonValue tBegun = QJsonDocument::fromJson(pText)[sBegun];
    const Beginning tBeginning{.mRepository = tBegun[sRepository].toString(),
                               .mRoot = tBegun[sRoot].toString().toUtf8(),
                               .mKeys = tBegun[sKeys].toVariant().toStringList()};
    return tBegun.isObject() && std::all_of(tBeginning.mKeys.begin(), tBeginning.mKeys.end(), isKeyName)
               ? std::optional(tBeginning)
               : std::nullopt;
}

} // namespace tarn::vkpublish
