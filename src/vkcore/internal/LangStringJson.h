#pragma once

#include <vkcore/LangString.h>

#include <QtCore/QJsonObject>

namespace tarn::vkcore {

// {"en": "Viewer", "de": "Betrachter"}
inline QJsonObject toJson(const LangString& pText)
{
    QJsonObject tObject;
    for (auto tIt = pText.values().begin(); tIt != pText.values().end(); ++tIt) {
        tObject.insert(tIt.key(), tIt.value());
    }
    return tObject;
}

// Any value except a text becomes an empty text.
inline LangString langStringFrom(const QJsonObject& pFrom)
{
    LangString tText;
    for (auto tIt = pFrom.begin(); tIt != pFrom.end(); ++tIt) {
        tText.setValue(tIt.key(), tIt.value().toString());
    }
    return tText;
}

} // namespace tarn::vkcore
