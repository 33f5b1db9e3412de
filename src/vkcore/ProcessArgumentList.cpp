#include <vkcore/ProcessArgumentList.h>

#include <algorithm>

namespace tarn::vkcore {

namespace {

int sArgc = 0;
char** sArgv = nullptr;

// The C library passes main's arguments to the initializers of shared libraries, too. The pointers are copied
// here, before QCoreApplication removes its own arguments from the array; the copy is never freed.
__attribute__((constructor)) void keepArguments(int pArgc, char** pArgv, char**)
{
    sArgc = pArgc;
    sArgv = new char*[static_cast<size_t>(pArgc) + 1];
    std::copy_n(pArgv, pArgc, sArgv);
    sArgv[pArgc] = nullptr;
}

} // namespace

ProcessArgumentList::ProcessArgumentList() = default;

int ProcessArgumentList::argc() const
{
    return sArgc;
}

char** ProcessArgumentList::argv() const
{
    return sArgv;
}

} // namespace tarn::vkcore
