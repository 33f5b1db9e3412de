#include "keys/Passphrases.h"

#include "keys/Terminal.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"

#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

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
    if (tSecret->text().size() < sLeastNew) {
        return Failure::content(u"A new passphrase needs at least %1 characters"_s.arg(sLeastNew));
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

Failure Passphrases::unlock(const QString& pName, const std::function<bool(std::string_view)>& pOpen)
{
    if (mKnown.empty()) {
        if (const Result<const Secret*> tGiven = given(); !tGiven) {
            return tGiven.failure();
        }
    }
    for (const Secret& tSecret : mKnown) {
        if (pOpen(tSecret.text())) {
            return {};
        }
    }
    if (!mIsGiven) {
        Terminal tTerminal;
        if (!tTerminal.isOpen()) {
            return noTerminal(pName);
        }
        const Result<const Secret*> tSecret = keep(
            tTerminal.ask(u"Passphrase for %1: "_s.arg(mKnown.empty() ? mWhat : pName + u", another one"_s)));
        if (!tSecret) {
            return tSecret.failure();
        }
        if (pOpen((*tSecret)->text())) {
            return {};
        }
    }
    return Failure::content(u"The passphrase does not open %1"_s.arg(pName));
}

Result<const Secret*> Passphrases::forNew()
{
    if (mKnown.empty()) {
        if (const Result<const Secret*> tGiven = given(); !tGiven) {
            return tGiven.failure();
        }
    }
    return mKnown.empty() ? keep(askForNew(mWhat)) : &mKnown.front();
}

} // namespace tarn::vkpublish
