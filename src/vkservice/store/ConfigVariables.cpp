#include "store/ConfigVariables.h"

#include "sqlite/Database.h"

#include <QtCore/QDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

using vkcore::Statement;

namespace {

constexpr qsizetype sMaxName = 1024;
constexpr qsizetype sMaxValueBytes = 1024 * 1024; // still fits into an answer when every byte is escaped

bool isOneOf(const QString& pText, const QStringList& pWords)
{
    return pWords.contains(pText, Qt::CaseInsensitive);
}
bool isYes(const QString& pText)
{
    return isOneOf(pText, {u"yes"_s, u"true"_s, u"1"_s});
}
bool isNo(const QString& pText)
{
    return isOneOf(pText, {u"no"_s, u"false"_s, u"0"_s});
}

QString prefixOf(const QString& pName)
{
    return pName.left(pName.indexOf(u'.') + 1);
}

} // namespace

VariableRule wholeNumberRule(const QString& pName, qint64 pDefault, qint64 pFrom, qint64 pTo)
{
    return {
        .mName = pName, .mDefault = QString::number(pDefault), .mCheck = [pFrom, pTo](const QString& pText) {
            bool tOk = false;
            const qint64 tNumber = pText.toLongLong(&tOk);
            return tOk && tNumber >= pFrom && tNumber <= pTo
                       ? QString()
                       : u"a whole number from %1 to %2 is expected"_s.arg(pFrom).arg(pTo);
        }};
}

VariableRule wordRule(const QString& pName, const QStringList& pWords)
{
    return {.mName = pName,
            .mDefault = pWords.first(),
            .mCheck =
                [pWords](const QString& pText) {
                    return isOneOf(pText, pWords) ? QString()
                                                  : u"one of %1 is expected"_s.arg(pWords.join(u", "_s));
                },
            .mWords = pWords};
}

VariableRule strictWordRule(const QString& pName, const QStringList& pWords)
{
    VariableRule tRule = wordRule(pName, pWords);
    tRule.mKeepsWrong = true;
    return tRule;
}

VariableRule yesNoRule(const QString& pName, bool pDefault)
{
    return {.mName = pName, .mDefault = pDefault ? u"yes"_s : u"no"_s, .mCheck = [](const QString& pText) {
                return isYes(pText) || isNo(pText) ? QString() : u"\"yes\" or \"no\" is expected"_s;
            }};
}

VariableRule pathRule(const QString& pName, const QString& pDefault)
{
    return {.mName = pName, .mDefault = pDefault, .mCheck = [](const QString& pText) {
                return QDir::isAbsolutePath(pText) && !pText.contains(QChar(0))
                           ? QString()
                           : u"an absolute path is expected"_s;
            }};
}

VariableRule metricsFileRule(const QString& pName)
{
    VariableRule tRule = pathRule(pName, QString());
    tRule.mCheck = [tIsPath = tRule.mCheck](const QString& pText) {
        const bool tIsFile =
            tIsPath(pText).isNull() && pText.endsWith(".prom"_L1) && !pText.endsWith("/.prom"_L1);
        return tIsFile ? QString() : u"an absolute path that ends in .prom is expected"_s;
    };
    return tRule;
}

VariableRule certificatesRule(const QString& pName)
{
    VariableRule tRule = pathRule(pName, QString());
    tRule.mKeepsWrong = true;
    return tRule;
}

VariableRule textRule(const QString& pName, const QString& pDefault)
{
    return {.mName = pName, .mDefault = pDefault, .mCheck = [](const QString& pText) {
                for (const QChar tChar : pText) {
                    if (tChar.category() == QChar::Other_Control) {
                        return u"a single line without control characters is expected"_s;
                    }
                }
                return QString();
            }};
}

ConfigVariables::ConfigVariables(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

void ConfigVariables::addRule(const VariableRule& pRule)
{
    mRules.insert(pRule.mName, pRule);
    if (!prefixOf(pRule.mName).isEmpty()) {
        addPrefix(prefixOf(pRule.mName));
    }
}

bool ConfigVariables::isMistaken(const QString& pName) const
{
    return !mRules.contains(pName) && mPrefixes.contains(prefixOf(pName));
}

std::optional<QString> ConfigVariables::stored(const QString& pName) const
{
    Statement tQuery(mDatabase, "SELECT value FROM variables WHERE name = ?");
    tQuery.bind(1, pName);
    if (tQuery.step()) {
        return tQuery.text(0);
    }
    return tQuery.isOk() ? std::optional(QString()) : std::nullopt;
}

QString ConfigVariables::configured(const VariableRule& pRule) const
{
    const QString tValue = mConfiguration ? mConfiguration(u"service."_s + pRule.mName) : QString();
    const bool tCounts = !tValue.isEmpty() && (pRule.mKeepsWrong || pRule.mCheck(tValue).isNull());
    return tCounts ? tValue : QString();
}

std::optional<QString> ConfigVariables::value(const QString& pName) const
{
    const auto tStored = stored(pName);
    const auto tRule = mRules.constFind(pName);
    if (!tStored || tRule == mRules.constEnd()) {
        return tStored;
    }
    if (!tStored->isNull() && tRule->mCheck(*tStored).isNull()) {
        return tStored;
    }
    const QString tConfigured = configured(*tRule);
    if (!tConfigured.isEmpty()) {
        return tConfigured;
    }
    return tRule->mDefault;
}

QString ConfigVariables::text(const QString& pName, bool* pAllRead) const
{
    const auto tValue = value(pName);
    if (!tValue && pAllRead != nullptr) {
        *pAllRead = false;
    }
    return tValue.value_or(QString());
}

bool ConfigVariables::flag(const QString& pName, bool* pAllRead) const
{
    return isYes(text(pName, pAllRead));
}

int ConfigVariables::word(const QString& pName, bool* pAllRead) const
{
    const QStringList tWords = mRules.value(pName).mWords;
    const QString tValue = text(pName, pAllRead);
    const auto tFound = std::find_if(tWords.begin(), tWords.end(), [&tValue](const QString& pWord) {
        return pWord.compare(tValue, Qt::CaseInsensitive) == 0;
    });
    return static_cast<int>(tFound - tWords.begin());
}

// Why the value can't be stored, if so.
Failure ConfigVariables::objection(const QString& pName, const QString& pValue) const
{
    if (pName.isEmpty() || pName.size() > sMaxName) {
        return Failure::content(
            u"The name of a configuration variable has 1 to %1 characters"_s.arg(sMaxName));
    }
    if (pValue.toUtf8().size() > sMaxValueBytes) {
        return Failure::content(
            u"The value of a configuration variable has at most %1 bytes"_s.arg(sMaxValueBytes));
    }
    if (isMistaken(pName) && (!pValue.isEmpty() || stored(pName).value_or(QString()).isNull())) {
        return Failure::content(
            u"Unknown variable %1: names with the prefix %2 are reserved for the service"_s.arg(
                pName, prefixOf(pName)));
    }
    const auto tRule = mRules.constFind(pName);
    const QString tComplaint =
        tRule != mRules.constEnd() && !pValue.isEmpty() ? tRule->mCheck(pValue) : QString();
    return tComplaint.isNull()
               ? Failure()
               : Failure::content(u"Invalid value for the variable %1: %2"_s.arg(pName, tComplaint));
}

Failure ConfigVariables::set(const QString& pName, const QString& pValue)
{
    if (const Failure tFailure = objection(pName, pValue)) {
        return tFailure;
    }
    const bool tReset = pValue.isEmpty() && (mRules.contains(pName) || isMistaken(pName));
    const bool tDone = mDatabase.transaction([&] {
        Statement tChange(mDatabase, tReset ? "DELETE FROM variables WHERE name = ?"
                                            : "INSERT OR REPLACE INTO variables (name, value) VALUES (?, ?)");
        tChange.bind(1, pName);
        if (!tReset) {
            tChange.bind(2, pValue.isNull() ? QString(QLatin1String("")) : pValue);
        }
        return tChange.run();
    });
    return tDone
               ? Failure()
               : Failure{Failure::Kind::Io, u"The variable can't be stored: %1"_s.arg(mDatabase.errorText())};
}

QStringList ConfigVariables::complaints() const
{
    QStringList tComplaints;
    for (const VariableRule& tRule : mRules) {
        const QString tKey = u"service."_s + tRule.mName;
        const QString tValue = mConfiguration ? mConfiguration(tKey) : QString();
        const QString tComplaint = tValue.isEmpty() ? QString() : tRule.mCheck(tValue);
        if (!tComplaint.isNull()) {
            tComplaints.append((tRule.mKeepsWrong ? u"The configuration key %1 is wrong: %2."_s
                                                  : u"The configuration key %1 is ignored: %2."_s)
                                   .arg(tKey, tComplaint));
        }
    }
    Statement tStored(mDatabase, "SELECT name, value FROM variables");
    while (tStored.step()) {
        const QString tName = tStored.text(0);
        const auto tRule = mRules.constFind(tName);
        const QString tComplaint = tRule != mRules.constEnd() ? tRule->mCheck(tStored.text(1)) : QString();
        if (!tComplaint.isNull()) {
            tComplaints.append(u"The stored value of %1 is ignored: %2."_s.arg(tName, tComplaint));
        } else if (isMistaken(tName)) {
            tComplaints.append(
                u"The stored variable %1 is unknown and has no effect. An empty value removes it."_s.arg(
                    tName));
        }
    }
    tComplaints.sort();
    return tComplaints;
}

} // namespace tarn::vkservice::store
