#include "support/Arguments.h"

#include <vkcore/ProcessArgumentList.h>

#include <QtCore/QByteArrayList>

#include <vector>

namespace tarn::fuzz {

namespace {

QByteArrayList sLines;
std::vector<char*> sPointers;

} // namespace

void setArguments(const QByteArray& pLines)
{
    sLines = (pLines.endsWith('\n') ? pLines.chopped(1) : pLines).split('\n');
    sPointers.clear();
    for (QByteArray& tLine : sLines) {
        sPointers.push_back(tLine.data());
    }
    sPointers.push_back(nullptr);
}

} // namespace tarn::fuzz

namespace tarn::vkcore {

ProcessArgumentList::ProcessArgumentList() = default;

int ProcessArgumentList::argc() const
{
    return static_cast<int>(fuzz::sPointers.size()) - 1;
}

char** ProcessArgumentList::argv() const
{
    return fuzz::sPointers.data();
}

} // namespace tarn::vkcore
