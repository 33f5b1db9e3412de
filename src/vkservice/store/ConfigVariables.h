#pragma once

#include "internal/Failure.h"

#include <QtCore/QHash>
#include <QtCore/QSet>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <functional>
#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

// A variable that the service reads, with its allowed values.
struct VariableRule
{
    QString mName;
    QString mDefault; // used if neither a value nor the configuration sets one
    // Returns the reason why a text is not a valid value of this variable, a null text if it is valid.
    std::function<QString(const QString&)> mCheck;
    QStringList mWords = {}; // of a wordRule
    // An invalid value in the configuration still counts, and fails where it is used: the default would be
    // less safe than what the administrator intended.
    bool mKeepsWrong = false;
};

// The rules of values that several variables share.
VariableRule wholeNumberRule(const QString& pName, qint64 pDefault, qint64 pFrom, qint64 pTo);
// One of these words, in any case; the first is the default.
VariableRule wordRule(const QString& pName, const QStringList& pWords);
VariableRule strictWordRule(const QString& pName, const QStringList& pWords); // keeps a wrong value
VariableRule yesNoRule(const QString& pName, bool pDefault);
VariableRule pathRule(const QString& pName, const QString& pDefault);
// The path of a file for a textfile collector, which reads only those whose names end in ".prom".
VariableRule metricsFileRule(const QString& pName);
// The file with the only trusted certificates; empty for those of the system.
VariableRule certificatesRule(const QString& pName);
VariableRule textRule(const QString& pName, const QString& pDefault);

// The configuration variables, by name. Those that the service knows are checked, and have a default that the
// configuration may change: the key for the variable update.caFile is service.update.caFile. An unknown name
// that shares the prefix of a known one, up to the first dot, is an error. All others are stored and returned
// unchanged.
class ConfigVariables
{
public:
    explicit ConfigVariables(vkcore::Database& pDatabase);

    void addRule(const VariableRule& pRule);
    // Names with this prefix belong to the service, too.
    void addPrefix(const QString& pPrefix) { mPrefixes.insert(pPrefix); }
    // How a key of the configuration is read; returns an empty text for a key without a value.
    void setConfiguration(std::function<QString(const QString& pKey)> pRead)
    {
        mConfiguration = std::move(pRead);
    }

    // The stored value if the rule accepts it, else that of the configuration, else the rule's default, else
    // a null text. No value if the database cannot be read.
    std::optional<QString> value(const QString& pName) const;
    // An empty text resets a known variable to its default, and removes an invalid name that an earlier
    // version accepted.
    Failure set(const QString& pName, const QString& pValue);

    // For known variables. An invalid value in the configuration is ignored, unless the rule keeps it. Sets
    // *pAllRead to false if the database cannot be read, else leaves it unchanged; then the returned value is
    // meaningless.
    QString text(const QString& pName, bool* pAllRead = nullptr) const;
    qint64 number(const QString& pName, bool* pAllRead = nullptr) const
    {
        return text(pName, pAllRead).toLongLong();
    }
    bool flag(const QString& pName, bool* pAllRead = nullptr) const;
    // The position of the value among the words of its rule.
    int word(const QString& pName, bool* pAllRead = nullptr) const;

    // For the log: one line for each invalid value, and for each stored name that is invalid.
    QStringList complaints() const;

private:
    QString configured(const VariableRule& pRule) const;
    std::optional<QString> stored(const QString& pName) const;
    bool isMistaken(const QString& pName) const;
    Failure objection(const QString& pName, const QString& pValue) const;

    vkcore::Database& mDatabase;
    QHash<QString, VariableRule> mRules;
    QSet<QString> mPrefixes; // with their dot
    std::function<QString(const QString&)> mConfiguration;
};

} // namespace tarn::vkservice::store
