#pragma once

#include <vkcore/Export.h>

#include <QtCore/QMap>
#include <QtCore/QString>

namespace tarn::vkcore {

// A text in several languages, keyed by language code ("en", "de", "pt_BR").
class VKCORE_EXPORT LangString
{
public:
    LangString() = default;
    explicit LangString(const QMap<QString, QString>& pValues);

    void setValue(const QString& pLang, const QString& pText);
    const QMap<QString, QString>& values() const { return mValues; }
    bool isEmpty() const { return mValues.isEmpty(); }

    // The text in pLang, else in its language without the country, else in English, else in the first
    // language that has one. Empty if there is none. The reference is valid until the next change.
    const QString& bestValue(const QString& pLang) const;

    bool operator==(const LangString&) const = default;

private:
    QMap<QString, QString> mValues;
};

} // namespace tarn::vkcore
