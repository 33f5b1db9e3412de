#include <vkcore/Config.h>

#include <QtCore/QFile>
#include <QtCore/QLocale>
#include <QtCore/QStringList>

// toml++ asserts what it checks right behind, so a bad file would end the program instead of being refused. With NDEBUG
// it turns assertions into assumptions, which is worse.
#undef NDEBUG
#define TOML_ASSERT(expression) static_cast<void>(0)
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

namespace tarn::vkcore {

namespace {

constexpr qint64 sMaxFileSize = 1024 * 1024;

QString toText(std::string_view pText)
{
    return QString::fromUtf8(pText.data(), static_cast<qsizetype>(pText.size()));
}

QString toText(const toml::date& pDate)
{
    return QStringLiteral("%1-%2-%3")
        .arg(pDate.year, 4, 10, QLatin1Char('0'))
        .arg(pDate.month, 2, 10, QLatin1Char('0'))
        .arg(pDate.day, 2, 10, QLatin1Char('0'));
}

QString toText(const toml::time& pTime)
{
    return QStringLiteral("%1:%2:%3")
        .arg(pTime.hour, 2, 10, QLatin1Char('0'))
        .arg(pTime.minute, 2, 10, QLatin1Char('0'))
        .arg(pTime.second, 2, 10, QLatin1Char('0'));
}

QString toText(const toml::date_time& pDateTime)
{
    return toText(pDateTime.date) + QLatin1Char('T') + toText(pDateTime.time);
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
        return tTruth->get() ? QStringLiteral("true") : QStringLiteral("false");
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
    return tParts.join(QLatin1Char(','));
}

// The values of a table and of those in it, under their whole keys.
void flatten(const toml::table& pTable, const QString& pPrefix, QHash<QString, QString>* pTo)
{
    for (const auto& [tKey, tNode] : pTable) {
        const QString tWhole = pPrefix + toText(tKey.str());
        if (const auto* tTable = tNode.as_table()) {
            flatten(*tTable, tWhole + QLatin1Char('.'), pTo);
        } else {
            pTo->insert(tWhole, toText(tNode));
        }
    }
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
        mErrorText = QStringLiteral("%1: %2").arg(pName, tFile.errorString());
        return false;
    }
    const QByteArray tBytes = tFile.read(sMaxFileSize + 1);
    if (tFile.error() != QFileDevice::NoError) {
        mErrorText = QStringLiteral("%1: %2").arg(pName, tFile.errorString());
        return false;
    }
    if (tBytes.size() > sMaxFileSize) {
        mErrorText = QStringLiteral("%1: larger than %2 bytes").arg(pName).arg(sMaxFileSize);
        return false;
    }
    const toml::parse_result tResult =
        toml::parse(std::string_view(tBytes.constData(), static_cast<size_t>(tBytes.size())));
    if (!tResult) {
        const toml::parse_error& tError = tResult.error();
        mErrorText = QStringLiteral("%1, line %2: %3")
                         .arg(pName)
                         .arg(tError.source().begin.line)
                         .arg(toText(tError.description()));
        return false;
    }
    QHash<QString, QString> tValues;
    flatten(tResult.table(), QString(), &tValues);
    for (auto tValue = tValues.cbegin(); tValue != tValues.cend(); ++tValue) {
        setValue(tValue.key(), tValue.value(), pType);
    }
    return true;
}

} // namespace tarn::vkcore
