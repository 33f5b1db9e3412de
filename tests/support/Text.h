#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <ostream>

// Decodes UTF-8.
inline QString q(QByteArrayView pBytes)
{
    return QString::fromUtf8(pBytes);
}

// A parameter type of helpers: a literal, bytes in UTF-8 or a QString.
class Text : public QString
{
public:
    Text() = default;
    Text(const char* pBytes) : QString(q(pBytes)) {}
    Text(const QByteArray& pBytes) : QString(q(pBytes)) {}
    Text(const QString& pText) : QString(pText) {}
};

// Makes GoogleTest print texts instead of lists of characters.
inline std::ostream& operator<<(std::ostream& pStream, const QByteArray& pBytes)
{
    return pStream << pBytes.toStdString();
}

inline std::ostream& operator<<(std::ostream& pStream, const QString& pText)
{
    return pStream << pText.toUtf8();
}

inline void PrintTo(const QByteArray& pBytes, std::ostream* pStream)
{
    *pStream << '"' << pBytes << '"';
}

inline void PrintTo(const QString& pText, std::ostream* pStream)
{
    PrintTo(pText.toUtf8(), pStream);
}
