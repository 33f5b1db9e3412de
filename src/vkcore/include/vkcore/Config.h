#pragma once

#include <vkcore/Export.h>

#include <QtCore/QHash>
#include <QtCore/QString>

namespace tarn::vkcore {

// The configuration: text values under dotted keys ("application.settingsDir.other"), read from TOML
// files in which the dots are tables. A later file wins over an earlier one, key by key.
class VKCORE_EXPORT Config
{
public:
    // The origin of a value; higher kinds override lower ones, in whatever order they are loaded.
    enum ValueType : int
    {
        DefaultValue = -1, // built into the library
        SystemValue = 0,   // the application's files
        UserValue = 1,     // the user's file
    };

    // The value of a key; empty if it has none. Numbers, dates and booleans are returned as written in the
    // file, lists joined by commas.
    QString getStrValue(const QString& pKey) const;
    QString getStrValue(const QString& pKey, const QString& pDefault) const;
    bool hasValue(const QString& pKey) const;
    void setValue(const QString& pKey, const QString& pValue, ValueType pType);

    // Reads the file pPath into the configuration; error texts call it pName. With pMustExist a missing file
    // is an error. False, with errorText() set and the configuration unchanged, if the file can't be read, is
    // not TOML, is larger than 1 MiB, or has a key of more than 32 parts or 255 characters.
    bool load(const QString& pPath, const QString& pName, ValueType pType, bool pMustExist);
    const QString& errorText() const { return mErrorText; }

private:
    struct Value
    {
        QString mText;
        ValueType mType;
    };

    QHash<QString, Value> mValues;
    QString mErrorText;
};

} // namespace tarn::vkcore
