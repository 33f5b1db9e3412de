#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QVarLengthArray>

namespace tarn::trees {

// The members of one line of an index: a JSON object of texts, integers and flags. A line as it is published
// is read without a document of Qt, which takes several times as long: an update reads the lines of several
// indexes. The same object in any other form is read by Qt, and gives the same members.
class IndexLine
{
public:
    // pLine must outlive the object.
    explicit IndexLine(const QByteArray& pLine);

    // isValid() is false from then on if the member is not there or is of another type.
    qint64 size(const char* pName);
    qint64 time(const char* pName);
    QByteArray text(const char* pName); // UTF-8, not empty
    // False if it is not there, which is no fault.
    bool flag(const char* pName);
    void require(bool pCondition) { mIsValid = mIsValid && pCondition; }

    bool isValid() const { return mIsValid; }

private:
    enum class Type
    {
        Text,
        Integer,
        Flag,
        Other,
    };
    struct Member
    {
        QByteArray mName;
        Type mType = Type::Other;
        QByteArray mText;
        qint64 mNumber = 0; // of an integer or a flag
    };
    class Scanner;

    bool scan(const QByteArray& pLine);
    bool readDocument(const QByteArray& pLine);
    const Member* find(QByteArrayView pName) const;
    const Member* take(const char* pName, Type pType);

    static constexpr qsizetype sMostMembers = 8; // of a published line
    QVarLengthArray<Member, sMostMembers> mMembers;
    bool mIsValid = false;
};

} // namespace tarn::trees
