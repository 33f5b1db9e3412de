#include "store/ConfigVariables.h"

#include "sqlite/Database.h"

#include <QtCore/QDir>

namespace tarn::vkservice::store {

using vkcore::Statement;

namespace {

constexpr qsizetype sMaxName = 1024;
constexpr qsizetype sMaxValueBytes = 1024 * 1024; // escaped at its worst it still fits into an answer

bool isYes(const QString& pText)
{
    return pText == QLatin1String("yes") || pText == QLatin1String("true") || pText == QLatin1String("1");
}
bool isNo(const QString& pText)
{
    return pText == QLatin1String("no") || pText == QLatin1String("false") || pText == QLatin1String("0");
}

} // namespace

VariableRule wholeNumberRule(const QString& pName, qint64 pDefault, qint64 pFrom, qint64 pTo)
{
    return {pName, QString::number(pDefault), [pFrom, pTo](const QString& pText) {
                bool tOk = false;
                const qint64 tNumber = pText.toLongLong(&tOk);
                return tOk && tNumber >= pFrom && tNumber <= pTo
                           ? QString()
                           : QStringLiteral("a whole number from %1 to %2 is expected").arg(pFrom).arg(pTo);
            }};
}

VariableRule yesNoRule(const QString& pName, bool pDefault)
{
    return {pName, pDefault ? QStringLiteral("yes") : QStringLiteral("no"), [](const QString& pText) {
                return isYes(pText) || isNo(pText) ? QString()
                                                   : QStringLiteral("\"yes\" or \"no\" is expected");
            }};
}

VariableRule pathRule(const QString& pName, const QString& pDefault)
{
    return {pName, pDefault, [](const QString& pText) {
                return QDir::isAbsolutePath(pText) && !pText.contains(QChar(0))
                           ? QString()
                           : QStringLiteral("an absolute path is expected");
            }};
}

VariableRule textRule(const QString& pName, const QString& pDefault)
{
    return {pName, pDefault, [](const QString& pText) {
                for (const QChar tChar : pText) {
                    if (tChar.category() == QChar::Other_Control) {
                        return QStringLiteral("a single line without control characters is expected");
                    }
                }
                return QString();
            }};
}

ConfigVariables::ConfigVariables(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

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
    const QString tValue =
        mConfiguration ? mConfiguration(QStringLiteral("service.") + pRule.mName) : QString();
    return !tValue.isEmpty() && pRule.mCheck(tValue).isNull() ? tValue : QString();
}

std::optional<QString> ConfigVariables::value(const QString& pName) const
{
    const auto tStored = stored(pName);
    if (!tStored || !tStored->isNull()) {
        return tStored;
    }
    const auto tRule = mRules.constFind(pName);
    if (tRule == mRules.constEnd()) {
        return QString();
    }
    const QString tConfigured = configured(*tRule);
    if (!tConfigured.isEmpty()) {
        return tConfigured;
    }
    return tRule->mDefault;
}

bool ConfigVariables::flag(const QString& pName) const
{
    return isYes(text(pName));
}

bool ConfigVariables::set(const QString& pName, const QString& pValue, QString* pReason)
{
    if (pName.isEmpty() || pName.size() > sMaxName) {
        *pReason =
            QStringLiteral("The name of a configuration variable has 1 to %1 characters.").arg(sMaxName);
        return false;
    }
    if (pValue.toUtf8().size() > sMaxValueBytes) {
        *pReason =
            QStringLiteral("The value of a configuration variable has at most %1 bytes.").arg(sMaxValueBytes);
        return false;
    }
    const auto tRule = mRules.constFind(pName);
    const bool tKnown = tRule != mRules.constEnd();
    const QString tComplaint = tKnown && !pValue.isEmpty() ? tRule->mCheck(pValue) : QString();
    if (!tComplaint.isNull()) {
        *pReason = QStringLiteral("The variable %1 can't have this value: %2.").arg(pName, tComplaint);
        return false;
    }
    const bool tReset = tKnown && pValue.isEmpty();
    const bool tDone = mDatabase.transaction([&] {
        Statement tChange(mDatabase, tReset ? "DELETE FROM variables WHERE name = ?"
                                            : "INSERT OR REPLACE INTO variables (name, value) VALUES (?, ?)");
        tChange.bind(1, pName);
        if (!tReset) {
            tChange.bind(2, pValue.isNull() ? QString(QLatin1String("")) : pValue);
        }
        return tChange.run();
    });
    if (!tDone) {
        *pReason = QStringLiteral("The variable can't be stored: %1.").arg(mDatabase.errorText());
    }
    return tDone;
}

QStringList ConfigVariables::complaints() const
{
    QStringList tComplaints;
    for (const VariableRule& tRule : mRules) {
        const QString tKey = QStringLiteral("service.") + tRule.mName;
        const QString tValue = mConfiguration ? mConfiguration(tKey) : QString();
        const QString tComplaint = tValue.isEmpty() ? QString() : tRule.mCheck(tValue);
        if (!tComplaint.isNull()) {
            tComplaints.append(
                QStringLiteral("The configuration key %1 is ignored: %2.").arg(tKey, tComplaint));
        }
    }
    tComplaints.sort();
    return tComplaints;
}

} // namespace tarn::vkservice::store
