#include "keys/Passphrases.h"

#include "keys/Terminal.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr size_t sLeastNew = 8; // bytes
constexpr const char* sFileVariable = "VKPUBLISH_PASSPHRASE_FILE";
constexpr const char* sCredentials = "CREDENTIALS_DIRECTORY";
const QString sCredential = u"/vkpublish-passphrase"_s;

Failure noTerminal(const QString& pFor)
{
    return Failure::content(
        u"%1 needs a passphrase, and there is no terminal to ask for it: set %2 to a file "
        "that has it, or give the unit the systemd credential vkpublish-passphrase"_s.arg(
            pFor, QLatin1String(sFileVariable)));
}

// pMayBeRead: a credential may show the rights of its access list as those of a group.
Result<Secret> readFrom(const QString& pPath, bool pMayBeRead)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    const os::Descriptor tFile(tFileSystem,
                               ::open(QFile::encodeName(pPath).constData(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    struct stat tStat = {};
    if (!tFile.isOpen() || ::fstat(tFile.fd(), &tStat) != 0) {
        return Failure::fromErrno(errno, u"read the passphrase in %1"_s.arg(pPath));
    }
    if (S_ISREG(tStat.st_mode) && (tStat.st_mode & 077) != 0 && !pMayBeRead) {
        return Failure::content(u"%1, which has the passphrase, is accessible to other users. Check who had "
                                "access, then remove it: chmod go= %1"_s.arg(pPath));
    }
    Secret tSecret;
    while (!tSecret.hasLine() && tSecret.room() > 0) {
        const ssize_t tSize = ::read(tFile.fd(), tSecret.end(), tSecret.room());
        if (tSize < 0 && errno != EINTR) {
            return Failure::fromErrno(errno, u"read the passphrase in %1"_s.arg(pPath));
        }
        if (tSize == 0) {
            break;
        }
        tSecret.grow(tSize > 0 ? static_cast<size_t>(tSize) : 0);
    }
    if (!tSecret.hasLine() && tSecret.room() == 0) {
        return Failure::content(u"The passphrase in %1 is too long"_s.arg(pPath));
    }
    tSecret.keepFirstLine();
    if (tSecret.text().empty()) {
        return Failure::content(
            u"The first line of %1, which is to be the passphrase, is empty"_s.arg(pPath));
    }
    return tSecret;
}

bool isTooShort(const Secret& pSecret)
{
    return pSecret.text().size() < sLeastNew;
}

Failure tooShort()
{
    return Failure::content(u"A new key needs a passphrase of at least %1 characters"_s.arg(sLeastNew));
}

// What this passphrase opens. All threads have ended when it returns.
void dropOpened(std::string_view pPassphrase, std::vector<Locked>* pLocked)
{
    std::vector<char> tIsOpen(pLocked->size());
    std::atomic<size_t> tNext = 0;
    const auto tLoop = [&] {
        for (size_t i = tNext++; i < tIsOpen.size(); i = tNext++) {
            tIsOpen[i] = (*pLocked)[i].mOpen(pPassphrase) ? 1 : 0;
        }
    };
    std::vector<std::thread> tThreads;
    try {
        for (size_t i = 1; i < std::min<size_t>(std::thread::hardware_concurrency(), tIsOpen.size()); ++i) {
            tThreads.emplace_back(tLoop);
        }
    } catch (const std::system_error&) {
        // The user or the unit may have no more: then it takes longer.
    }
    tLoop();
    for (std::thread& tThread : tThreads) {
        tThread.join();
    }
    size_t tAt = 0;
    std::erase_if(*pLocked, [&](const Locked&) { return tIsOpen[tAt++] != 0; });
}

Result<Secret> askForNew(const QString& pWhat)
{
    Terminal tTerminal;
    if (!tTerminal.isOpen()) {
        return noTerminal(u"A new key"_s);
    }
    Result<Secret> tSecret = tTerminal.ask(u"New passphrase for %1: "_s.arg(pWhat));
    if (!tSecret) {
        return tSecret;
    }
    if (isTooShort(*tSecret)) {
        return tooShort();
    }
    const Result<Secret> tAgain = tTerminal.ask(u"The same again: "_s);
    if (!tAgain) {
        return tAgain.failure();
    }
    if (tAgain->text() != tSecret->text()) {
        return Failure::content(u"The two passphrases differ"_s);
    }
    return tSecret;
}

} // namespace

Passphrases::Passphrases(const QString& pWhat) : mWhat(pWhat) {}

Result<const Secret*> Passphrases::keep(Result<Secret> pSecret)
{
    if (!pSecret) {
        return pSecret.failure();
    }
    mKnown.push_back(std::move(*pSecret));
    return &mKnown.back();
}

Result<const Secret*> Passphrases::given()
{
    const QString tFile = qEnvironmentVariable(sFileVariable);
    const QString tCredential = qEnvironmentVariable(sCredentials) + sCredential;
    mIsGiven = true;
    if (!tFile.isEmpty()) {
        return keep(readFrom(tFile, false));
    }
    if (qEnvironmentVariableIsSet(sCredentials) && QFile::exists(tCredential)) {
        return keep(readFrom(tCredential, true));
    }
    mIsGiven = false;
    return nullptr;
}

Result<const Secret*> Passphrases::ask(const QString& pName)
{
    Terminal tTerminal;
    return tTerminal.isOpen() ? keep(tTerminal.ask(u"Passphrase for %1: "_s.arg(
                                    mKnown.empty() ? mWhat : pName + u", another one"_s)))
                              : Result<const Secret*>(noTerminal(pName));
}

Failure Passphrases::unlock(std::vector<Locked> pLocked)
{
    if (mKnown.empty() && !pLocked.empty()) {
        if (const Result<const Secret*> tGiven = given(); !tGiven) {
            return tGiven.failure();
        }
    }
    for (const Secret& tSecret : mKnown) {
        dropOpened(tSecret.text(), &pLocked);
    }
    while (!pLocked.empty()) {
        const QString tName = pLocked.front().mName;
        const size_t tCount = pLocked.size();
        if (!mIsGiven) {
            const Result<const Secret*> tSecret = ask(tName);
            if (!tSecret) {
                return tSecret.failure();
            }
            dropOpened((*tSecret)->text(), &pLocked);
        }
        if (pLocked.size() == tCount) {
            return Failure::content(u"The passphrase does not open %1"_s.arg(tName));
        }
    }
    return {};
}

Result<const Secret*> Passphrases::forNew()
{
    if (mKnown.empty()) {
        if (const Result<const Secret*> tGiven = given(); !tGiven) {
            return tGiven.failure();
        }
    }
    Result<const Secret*> tSecret = mKnown.empty() ? keep(askForNew(mWhat)) : &mKnown.front();
    return tSecret && isTooShort(**tSecret) ? tooShort() : tSecret;
}

} // namespace tarn::vkpublish
