#include "trees/IndexLine.h"

#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

namespace tarn::trees {

// Takes apart what toLine() writes, and nothing else: no blanks, no escapes, only ASCII.
class IndexLine::Scanner
{
public:
    explicit Scanner(QByteArrayView pText) : mRest(pText) {}

    bool take(QByteArrayView pWord)
    {
        const bool tIsThere = mRest.startsWith(pWord);
        mRest = tIsThere ? mRest.sliced(pWord.size()) : mRest;
        return tIsThere;
    }

    bool takeText(QByteArray* pTo)
    {
        if (!take("\"")) {
            return false;
        }
        const auto tEnd = std::find_if(mRest.begin(), mRest.end(), [](char pChar) {
            return pChar == '"' || pChar == '\\' || pChar < ' ' || pChar > '~';
        });
        const qsizetype tLength = tEnd - mRest.begin();
        *pTo = QByteArray::fromRawData(mRest.data(), tLength);
        mRest = mRest.sliced(tLength);
        return take("\"");
    }

    // In its shortest form, and far from the limits of the type.
    bool takeInteger(qint64* pTo)
    {
        constexpr qsizetype sMostDigits = 18;
        const bool tIsNegative = take("-");
        const auto tEnd =
            std::find_if(mRest.begin(), mRest.end(), [](char pChar) { return pChar < '0' || pChar > '9'; });
        const QByteArrayView tDigits = mRest.first(tEnd - mRest.begin());
        if (tDigits.isEmpty() || tDigits.size() > sMostDigits ||
            (tDigits.front() == '0' && (tIsNegative || tDigits.size() > 1))) {
            return false;
        }
        *pTo = 0;
        for (const char tDigit : tDigits) {
            *pTo = *pTo * 10 + (tDigit - '0');
        }
        *pTo = tIsNegative ? -*pTo : *pTo;
        mRest = mRest.sliced(tDigits.size());
        return true;
    }

    bool takeMember(Member* pTo)
    {
        if (!takeText(&pTo->mName) || !take(":")) {
            return false;
        }
        if (mRest.startsWith('"')) {
            pTo->mType = Type::Text;
            return takeText(&pTo->mText);
        }
        for (const bool tFlag : {false, true}) {
            if (take(tFlag ? "true" : "false")) {
                pTo->mType = Type::Flag;
                pTo->mNumber = tFlag ? 1 : 0;
                return true;
            }
        }
        pTo->mType = Type::Integer;
        return takeInteger(&pTo->mNumber);
    }

    bool isAtEnd() const { return mRest.isEmpty(); }

private:
    QByteArrayView mRest;
};

IndexLine::IndexLine(const QByteArray& pLine)
{
    mIsValid = scan(pLine) || readDocument(pLine);
}

bool IndexLine::scan(const QByteArray& pLine)
{
    Scanner tScanner(pLine);
    if (!tScanner.take("{")) {
        return false;
    }
    do {
        Member tMember;
        // Which of two counts is for Qt to say, and it takes any number of them in short time.
        if (!tScanner.takeMember(&tMember) || find(tMember.mName) != nullptr ||
            mMembers.size() == sMostMembers) {
            return false;
        }
        mMembers.append(tMember);
    } while (tScanner.take(","));
    return tScanner.take("}") && tScanner.isAtEnd();
}

bool IndexLine::readDocument(const QByteArray& pLine)
{
    mMembers.clear();
    const QJsonDocument tDocument = QJsonDocument::fromJson(pLine);
    const QJsonObject tObject = tDocument.object();
    for (auto tIt = tObject.begin(); tIt != tObject.end(); ++tIt) {
        const QJsonValue tValue = tIt.value();
        Member tMember{.mName = tIt.key().toUtf8(), .mText = {}};
        if (tValue.isString() && tValue.toString().isValidUtf16()) {
            tMember.mType = Type::Text;
            tMember.mText = tValue.toString().toUtf8();
        } else if (tValue.isBool()) {
            tMember.mType = Type::Flag;
            tMember.mNumber = tValue.toBool() ? 1 : 0;
        } else if (tValue.isDouble() && tValue.toInteger(0) == tValue.toInteger(1)) {
            tMember.mType = Type::Integer;
            tMember.mNumber = tValue.toInteger();
        }
        mMembers.append(tMember);
    }
    return tDocument.isObject();
}

const IndexLine::Member* IndexLine::find(QByteArrayView pName) const
{
    const auto tFound = std::find_if(mMembers.begin(), mMembers.end(),
                                     [pName](const Member& pMember) { return pMember.mName == pName; });
    return tFound == mMembers.end() ? nullptr : &*tFound;
}

const IndexLine::Member* IndexLine::take(const char* pName, Type pType)
{
    const Member* tMember = find(pName);
    require(tMember != nullptr && tMember->mType == pType);
    return mIsValid ? tMember : nullptr;
}

qint64 IndexLine::size(const char* pName)
{
    const qint64 tSize = time(pName);
    require(tSize >= 0);
    return tSize;
}

qint64 IndexLine::time(const char* pName)
{
    const Member* tMember = take(pName, Type::Integer);
    return tMember == nullptr ? -1 : tMember->mNumber;
}

QByteArray IndexLine::text(const char* pName)
{
    const Member* tMember = take(pName, Type::Text);
    require(tMember != nullptr && !tMember->mText.isEmpty());
    return mIsValid ? QByteArray(tMember->mText.constData(), tMember->mText.size()) : QByteArray();
}

bool IndexLine::flag(const char* pName)
{
    const Member* tMember = find(pName);
    require(tMember == nullptr || tMember->mType == Type::Flag);
    return tMember != nullptr && tMember->mNumber != 0;
}

} // namespace tarn::trees
