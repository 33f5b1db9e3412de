#include <vkcore/Config.h>

#include "DottedKeys.h"
#include "Toml.h"

#include <QtCore/QFile>
#include <QtCore/QLocale>
#include <QtCore/QStringList>

using namespace Qt::StringLiterals;

namespace tarn::vkcore {

namespace {

constexpr qint64 sMaxFileSize = 1024 * 1024;
// Each value stores its full key, and a long table name may be the prefix of very many keys.
constexpr qsizetype sMaxKeyLength = 255;

QString toText(std::string_view pText)
{
    return QString::fromUtf8(pText.data(), static_cast<qsizetype>(pText.size()));
}

QString toText(const toml::date& pDate)
{
    return u"%1-%2-%3"_s.arg(pDate.year, 4, 10, '0'_L1)
        .arg(pDate.month, 2, 10, '0'_L1)
        .arg(pDate.day, 2, 10, '0'_L1);
}

QString toText(const toml::time& pTime)
{
    return u"%1:%2:%3"_s.arg(pTime.hour, 2, 10, '0'_L1)
        .arg(pTime.minute, 2, 10, '0'_L1)
        .arg(pTime.second, 2, 10, '0'_L1);
}

QString toText(const toml::date_time& pDateTime)
{
    return toText(pDateTime.date) + u'T' + toText(pDateTime.time);
}

QString toText(const toml::node& pNode)
{
    if (const auto* tText = pNode.as_string()) {
        return toText(std::string_view(tText->get()));
    }
    if (const auto* tNumber = pNode.as_integer()) {
        return QString::number(tNumber->get());
    }
    if (const auto* tNumber = pNode.as_floating_point()) {
        return QString::number(tNumber->get(), 'g', QLocale::FloatingPointShortest);
    }
    if (const auto* tTruth = pNode.as_boolean()) {
        return tTruth->get() ? u"true"_s : u"false"_s;
    }
    if (const auto* tDate = pNode.as_date()) {
        return toText(tDate->get());
    }
    if (const auto* tTime = pNode.as_time()) {
        return toText(tTime->get());
    }
    if (const auto* tDateTime = pNode.as_date_time()) {
        return toText(tDateTime->get());
    }
    QStringList tParts;
    if (const auto* tList = pNode.as_array()) {
        for (const toml::node& tPart : *tList) {
            tParts.append(toText(tPart));
        }
    }
    return tParts.join(u',');
}

// The values of a table and its subtables by their full keys. False if a key is too long.
bool flatten(const toml::table& pTable, const QString& pPrefix, QHash<QString, QString>* pTo)
{
    for (const auto& [tKey, tNode] : pTable) {
        const QString tWhole = pPrefix + toText(tKey.str());
        if (tWhole.size() > sMaxKeyLength) {
            return false;
        }
        if (const auto* tTable = tNode.as_table()) {
            if (!flatten(*tTable, tWhole + u'.', pTo)) {
                return false;
            }
        } else {
            pTo->insert(tWhole, toText(tNode));
        }
    }
    return true;
}

} // namespace

QString Config::getStrValue(const QString& pKey) const
{
    return getStrValue(pKey, QString());
}

QString Config::getStrValue(const QString& pKey, const QString& pDefault) const
{
    const auto tFound = mValues.constFind(pKey);
    return tFound == mValues.cend() ? pDefault : tFound->mText;
}

bool Config::hasValue(const QString& pKey) const
{
    return mValues.contains(pKey);
}

void Config::setValue(const QString& pKey, const QString& pValue, ValueType pType)
{
    const auto tFound = mValues.constFind(pKey);
    if (tFound == mValues.cend() || tFound->mType <= pType) {
        mValues.insert(pKey, {pValue, pType});
    }
}

bool Config::load(const QString& pPath, const QString& pName, ValueType pType, bool pMustExist)
{
    mErrorText.clear();
    QFile tFile(pPath);
    if (!pMustExist && !tFile.exists()) {
        return true;
    }
    if (!tFile.open(QIODevice::ReadOnly)) {
        mErrorText = u"%1: %2"_s.arg(pName, tFile.errorString());
        return false;
    }
    const QByteArray tBytes = tFile.read(sMaxFileSize + 1);
    if (tFile.error() != QFileDevice::NoError) {
        mErrorText = u"%1: %2"_s.arg(pName, tFile.errorString());
        return false;
    }
    if (tBytes.size() > sMaxFileSize) {
        mErrorText = u"%1: larger than %2 bytes"_s.arg(pName).arg(sMaxFileSize);
        return false;
    }
    const std::string_view tToml(tBytes.constData(), static_cast<size_t>(tBytes.size()));
    if (hasDeepKey(tToml)) {
        mErrorText = u"%1: a key has more than %2 parts"_s.arg(pName).arg(sMaxKeyParts);
        return false;
    }
    const toml::parse_result tResult = toml::parse(tToml);
    if (!tResult) {
        const toml::parse_error& tError = tResult.error();
        mErrorText =
            u"%1, line %2: %3"_s.arg(pName).arg(tError.source().begin.line).arg(toText(tError.description()));
        return false;
    }
    QHash<QString, QString> tValues;
    if (!flatten(tResult.table(), QString(), &tValues)) {
        mErrorText = u"%1: a key is longer than %2 characters"_s.arg(pName).arg(sMaxKeyLength);
        return false;
    }
    for (auto tValue = tValues.cbegin(); tValue != tValues.cend(); ++tValue) {
        setValue(tValue.key(), tValue.value(), pType);
    }
    return true;
}

} // namespace tarn::vkcore
