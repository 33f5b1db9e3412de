#pragma once

#include <QtCore/QHash>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

// A variable that the service reads, with what it may hold.
struct VariableRule
{
    QString mName;
    QString mDefault; // where neither a value nor the configuration has one
    // Gives the reason why a text is no value of this variable, a null text if it is one.
    std::function<QString(const QString&)> mCheck;
};

// The rules of values that several variables share.
VariableRule wholeNumberRule(const QString& pName, qint64 pDefault, qint64 pFrom, qint64 pTo);
VariableRule yesNoRule(const QString& pName, bool pDefault);
VariableRule pathRule(const QString& pName, const QString& pDefault);
VariableRule textRule(const QString& pName, const QString& pDefault);

// The configuration variables, by name. Those that the service knows are checked, and have a default that the
// configuration may change: the key of the variable update.caFile is service.update.caFile. Others are stored
// and given back as they are.
class ConfigVariables
{
public:
    explicit ConfigVariables(vkcore::Database& pDatabase);

    void addRule(const VariableRule& pRule) { mRules.insert(pRule.mName, pRule); }
    // How a key of the configuration is read; gives an empty text for a key without a value.
    void setConfiguration(std::function<QString(const QString& pKey)> pRead)
    {
        mConfiguration = std::move(pRead);
    }

    // The stored value, else that of the configuration, else the rule's default, else a null text; none if
    // the database can't be read.
    std::optional<QString> value(const QString& pName) const;
    // An empty text takes a known variable back to its default. False with a reason.
    bool set(const QString& pName, const QString& pValue, QString* pReason);

    // Of known variables. A value of the configuration that breaks the rule is no value.
    QString text(const QString& pName) const { return value(pName).value_or(QString()); }
    qint64 number(const QString& pName) const { return text(pName).toLongLong(); }
    bool flag(const QString& pName) const;

    // One line for each value of the configuration that breaks its rule, for the log.
    QStringList complaints() const;

private:
    QString configured(const VariableRule& pRule) const;
    std::optional<QString> stored(const QString& pName) const;

    vkcore::Database& mDatabase;
    QHash<QString, VariableRule> mRules;
    std::function<QString(const QString&)> mConfiguration;
};

} // namespace tarn::vkservice::store
