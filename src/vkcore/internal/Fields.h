#pragma once

#include "internal/JsonReader.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonObject>
#include <QtCore/QList>

#include <concepts>
#include <functional>
#include <limits>
#include <optional>
#include <tuple>
#include <type_traits>

// How values travel: the type's list of fields is the one place that names its members, and both ends write
// and read by it. A text without a value and a date that is not set are null; an optional that is not set is
// missing.
namespace tarn::vkcore::protocol {

// A member of T and its name.
template <typename T, typename V>
struct Field
{
    const char* mName;
    V T::*mMember;

    const V& get(const T& pFrom) const { return pFrom.*mMember; }
};
template <typename T, typename V>
Field(const char*, V T::*) -> Field<T, V>;

// A member of T with accessors: V get(const T&) and void set(T&, V).
template <typename G, typename S>
struct Property
{
    const char* mName;
    G mGet;
    S mSet;

    template <typename T>
    decltype(auto) get(const T& pFrom) const
    {
        return std::invoke(mGet, pFrom);
    }
};
template <typename G, typename S>
Property(const char*, G, S) -> Property<G, S>;

// Specialised for each type that travels: a tuple of Field and Property.
template <typename T>
inline constexpr std::nullptr_t sFields = nullptr;

template <typename T>
concept HasFields = !std::same_as<std::remove_cvref_t<decltype(sFields<T>)>, std::nullptr_t>;

QJsonValue toJson(const QString& pText);
// yyyy-MM-ddTHH:mm:ss in local time.
QJsonValue toJson(const QDateTime& pDate);

template <typename T>
requires std::integral<T> || std::is_enum_v<T> QJsonValue toJson(T pValue)
{
    if constexpr (std::same_as<T, bool>) {
        return pValue;
    } else {
        return static_cast<qint64>(pValue);
    }
}

template <HasFields T>
QJsonObject toJson(const T& pValue);

template <typename T>
QJsonArray toJson(const QList<T>& pList)
{
    QJsonArray tArray;
    for (const T& tEntry : pList) {
        tArray.append(toJson(tEntry));
    }
    return tArray;
}

template <typename T>
void write(QJsonObject& pTo, const char* pName, const T& pValue)
{
    pTo.insert(QLatin1String(pName), toJson(pValue));
}
// Undefined: missing.
inline void write(QJsonObject& pTo, const char* pName, const QJsonValue& pValue)
{
    pTo.insert(QLatin1String(pName), pValue);
}
template <typename T>
void write(QJsonObject& pTo, const char* pName, const std::optional<T>& pValue)
{
    if (pValue) {
        write(pTo, pName, *pValue);
    }
}

template <HasFields T>
QJsonObject toJson(const T& pValue)
{
    QJsonObject tObject;
    std::apply([&](const auto&... pField) { (write(tObject, pField.mName, pField.get(pValue)), ...); },
               sFields<T>);
    return tObject;
}

// The readers. Their results are meaningless once pFrom has a fault.
void read(JsonReader& pFrom, const char* pName, QString* pTo);   // a text or null
void read(JsonReader& pFrom, const char* pName, QDateTime* pTo); // a date or null
template <HasFields T>
void read(JsonReader& pFrom, T* pTo);

inline void read(JsonReader& pFrom, const char* pName, bool* pTo)
{
    *pTo = pFrom.boolean(pName);
}

// An enumeration travels as its number, also one that this end does not know.
template <typename T>
requires std::integral<T> || std::is_enum_v<T>
void read(JsonReader& pFrom, const char* pName, T* pTo)
{
    using Number = std::conditional_t<std::is_enum_v<T>, int, T>;
    *pTo = static_cast<T>(
        pFrom.integer(pName, std::numeric_limits<Number>::min(), std::numeric_limits<Number>::max()));
}

// Any value; undefined if it is missing.
inline void read(JsonReader& pFrom, const char* pName, QJsonValue* pTo)
{
    *pTo = pFrom.json().value(QLatin1String(pName));
}

template <HasFields T>
void read(JsonReader& pFrom, const char* pName, T* pTo)
{
    JsonReader tObject = pFrom.object(pName);
    read(tObject, pTo);
}

template <typename T>
void read(JsonReader& pFrom, const char* pName, QList<T>* pTo)
{
    pFrom.each(pName, [pTo](JsonReader& pEntry) { read(pEntry, &pTo->emplaceBack()); });
}

template <typename T>
void read(JsonReader& pFrom, const char* pName, std::optional<T>* pTo)
{
    if (pFrom.has(pName)) {
        read(pFrom, pName, &pTo->emplace());
    }
}

template <typename T, typename U, typename V>
void readField(JsonReader& pFrom, const Field<U, V>& pField, T* pTo)
{
    read(pFrom, pField.mName, &(pTo->*pField.mMember));
}
template <typename T, typename G, typename S>
void readField(JsonReader& pFrom, const Property<G, S>& pField, T* pTo)
{
    std::remove_cvref_t<std::invoke_result_t<G, const T&>> tValue{};
    read(pFrom, pField.mName, &tValue);
    std::invoke(pField.mSet, *pTo, tValue);
}

template <HasFields T>
void read(JsonReader& pFrom, T* pTo)
{
    std::apply([&](const auto&... pField) { (readField(pFrom, pField, pTo), ...); }, sFields<T>);
}

// The complete value, or none with the reason in *pFault.
template <HasFields T>
std::optional<T> fromJson(const QJsonValue& pFrom, QString* pFault)
{
    JsonReader tReader(pFrom, pFault);
    T tValue;
    read(tReader, &tValue);
    return tReader.ok() ? std::optional(tValue) : std::nullopt;
}

} // namespace tarn::vkcore::protocol
