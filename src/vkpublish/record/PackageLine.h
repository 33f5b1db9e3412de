#pragma once

#include <QtCore/QByteArray>

#include <optional>

namespace tarn::vkpublish {

// A line in a list of packages: the SHA-256 of the rest, the package's name, and its target in canonical
// form, or "null" for a removed one.
struct PackageLine
{
    QByteArray mName;
    QByteArray mText;

    // With its end; empty if there can be no line for this.
    QByteArray toBytes() const;
    // pLine: without its end.
    static std::optional<PackageLine> parse(QByteArrayView pLine);
    // Whether a line that is not parsed is about such a name.
    static bool isNamed(QByteArrayView pLine, const QByteArray& pPrefix);
};

} // namespace tarn::vkpublish
