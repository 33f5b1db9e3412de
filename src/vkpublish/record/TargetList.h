#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

// Name -> target, each as its canonical text: thousands of them are compared, stored and signed without being
// parsed. It can be read like a QJsonObject.
class TargetList
{
public:
    class Iterator
    {
    public:
        explicit Iterator(QMap<QByteArray, QByteArray>::const_iterator pAt) : mAt(pAt) {}
        QString key() const { return QString::fromUtf8(mAt.key()); }
        QJsonValue value() const { return parsed(mAt.value()); }
        const QByteArray& text() const { return mAt.value(); }
        Iterator& operator++()
        {
            ++mAt;
            return *this;
        }
        bool operator==(const Iterator& pOther) const = default;

    private:
        QMap<QByteArray, QByteArray>::const_iterator mAt;
    };

    TargetList() = default;
    TargetList(const QJsonObject& pTargets);

    bool isEmpty() const { return mTexts.isEmpty(); }
    qsizetype size() const { return mTexts.size(); }
    Iterator begin() const { return Iterator(mTexts.cbegin()); }
    Iterator end() const { return Iterator(mTexts.cend()); }
    QStringList keys() const;
    QStringList keysWithPrefix(const QString& pPrefix) const;
    bool contains(const QString& pName) const { return mTexts.contains(pName.toUtf8()); }
    // Undefined if there is none of this name.
    QJsonValue value(const QString& pName) const { return parsed(text(pName)); }
    QJsonValue operator[](const QString& pName) const { return value(pName); }
    // Null if there is none, empty if the target has no canonical form.
    QByteArray text(const QString& pName) const { return mTexts.value(pName.toUtf8()); }

    void insert(const QString& pName, const QJsonObject& pTarget);
    // pText: in canonical form.
    void insertText(const QByteArray& pName, const QByteArray& pText) { mTexts.insert(pName, pText); }
    void remove(const QString& pName) { mTexts.remove(pName.toUtf8()); }

    bool operator==(const TargetList& pOther) const = default;

    // The canonical form of all of them as one object; empty if one has none.
    QByteArray canonical() const;
    const QMap<QByteArray, QByteArray>& texts() const { return mTexts; }

private:
    static QJsonValue parsed(const QByteArray& pText);

    QMap<QByteArray, QByteArray> mTexts; // sorted like canonical JSON
};

} // namespace tarn::vkpublish
