#include "DottedKeys.h"

#include <algorithm>

namespace tarn::vkcore {

namespace {

// The parts of a key and their separators. Some non-ASCII characters count as spaces.
bool continuesKey(char pChar)
{
    const bool tLetter = (pChar >= 'a' && pChar <= 'z') || (pChar >= 'A' && pChar <= 'Z');
    const bool tDigit = pChar >= '0' && pChar <= '9';
    return tLetter || tDigit || pChar == '_' || pChar == '-' || pChar == ' ' || pChar == '\t' ||
           static_cast<unsigned char>(pChar) >= 0x80;
}

// The position after the string that starts at pStart.
size_t endOfString(std::string_view pToml, size_t pStart)
{
    const char tQuote = pToml[pStart];
    const std::string_view tThree = pToml.substr(pStart, 3);
    const bool tManyLines = tThree == std::string_view("\"\"\"") || tThree == std::string_view("'''");
    const size_t tLength = tManyLines ? 3 : 1;
    size_t i = pStart + tLength;
    for (; i < pToml.size(); ++i) {
        if (tQuote == '"' && pToml[i] == '\\') {
            ++i;
        } else if (pToml.substr(i, tLength) == pToml.substr(pStart, tLength)) {
            i += tLength;
            break;
        } else if (pToml[i] == '\n' && !tManyLines) {
            break;
        }
    }
    // One or two quotes may be the last of the text, in front of the three that end it.
    for (int tMore = 0; tManyLines && tMore < 2 && i < pToml.size() && pToml[i] == tQuote; ++tMore) {
        ++i;
    }
    return std::min(i, pToml.size());
}

} // namespace

bool hasDeepKey(std::string_view pToml)
{
    int tDots = 0;
    for (size_t i = 0; i < pToml.size();) {
        const char tChar = pToml[i];
        if (tChar == '"' || tChar == '\'') {
            i = endOfString(pToml, i);
            continue;
        }
        if (tChar == '#') {
            i = std::min(pToml.find('\n', i), pToml.size());
            tDots = 0;
            continue;
        }
        if (tChar == '.') {
            ++tDots;
        } else if (!continuesKey(tChar)) {
            tDots = 0;
        }
        if (tDots >= sMaxKeyParts) {
            return true;
        }
        ++i;
    }
    return false;
}

} // namespace tarn::vkcore
