// What vkprocesses tells, to whom, and what its faults do to whoever asks.

#include "Child.h"
#include "Files.h"
#include "Program.h"
#include "Test.h"
#include "UnixSocket.h"

#include "internal/Machine.h"
#include "os/HelpedProcessList.h"
#include "process/OwnVkprocesses.h"
#include "process/UserChange.h"
#include "Rights.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <thread>

using namespace tarn;
using os::HelpedProcessList;
using vkservice::process::becomeUser;

namespace {

const vkcore::machine::ServiceUser sNobody{q("nobody"), 65534, 65534};

// Folders of "nobody" and of root. A process of root runs "used/bin/sleep", another one "roots/sleep", and a
// third one has "open/file" open.
class VkprocessesTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "only root can take on other users";
        }
        if (!isTrueAs(65534, [] { return ::access(BUILD_DIR "/libexec/vkprocesses", X_OK) == 0; })) {
            GTEST_SKIP() << "the build is closed to other users";
        }
        ::chmod(path("").constData(), 0755);
        for (const char* tFile :
             {"used/bin/sleep", "open/file", "unused/file", "roots/sleep", "closed/file"}) {
            writeFile(mDir.filePath(q(tFile)), readFile(q("/bin/sleep")));
            ASSERT_EQ(::chmod(path(tFile).constData(), 0755), 0);
        }
        for (const char* tPath :
             {"used", "used/bin", "used/bin/sleep", "open", "open/file", "unused", "unused/file"}) {
            ASSERT_EQ(::chown(path(tPath).constData(), 65534, 65534), 0);
        }
        mSleeper = std::make_unique<Program>(folder("used/bin/sleep"), QList<QByteArray>{"600"},
                                             Program::Environment());
        mOther = std::make_unique<Program>(folder("roots/sleep"), QList<QByteArray>{"600"},
                                           Program::Environment());
        mOpen =
            std::make_unique<Child>([this] { return ::open(path("open/file").constData(), O_RDONLY) >= 0; });
        ASSERT_TRUE(mOpen->isReady());
    }

    QByteArray path(const char* pBelow) const { return QFile::encodeName(folder(pBelow)); }
    QString folder(const char* pBelow) const { return mDir.filePath(q(pBelow)); }
    os::ProgramSearch search() const
    {
        return {.mFolders = {folder("used"), folder("roots")}, .mScripts = {}, .mPlaces = {}};
    }
    // Only what belongs to "nobody" is told, and what is not known counts as used.
    bool isAnswered(os::ProcessList& pList) const
    {
        const auto tUsed = pList.inUse({folder("unused"), folder("used"), folder("open"), folder("closed")});
        const auto tRunning = pList.running(search());
        return tUsed && tRunning &&
               QSet<QString>(tUsed->begin(), tUsed->end()) ==
                   QSet<QString>{folder("used"), folder("open"), folder("closed")} &&
               *tRunning == QList{os::Process{mSleeper->pid(), q("sleep"), folder("used/bin/sleep")}};
    }
    // Runs it as the user and returns its result.
    static bool isTrueAs(uid_t pUser, const std::function<bool()>& pWhat)
    {
        const Child tChild([&] {
            return ::setgroups(0, nullptr) == 0 && ::setgid(pUser) == 0 && ::setuid(pUser) == 0 && pWhat();
        });
        return tChild.isReady();
    }

    const QTemporaryDir mDir;
    std::unique_ptr<Program> mSleeper;
    std::unique_ptr<Program> mOther;
    std::unique_ptr<Child> mOpen;
};

os::Descriptor descriptor(int pFd)
{
    return {os::realFileSystem(), pFd};
}

} // namespace

TEST_F(VkprocessesTest, SeesForAProcessWithoutRightsWhatOthersRunAndUse)
{
    const Child tAsker([this] {
        const int tFd = vkservice::process::startVkprocesses(sNobody);
        if (becomeUser(sNobody, std::nullopt) || ::setuid(0) == 0 || ::access("/proc/1/fd", R_OK) == 0) {
            return false;
        }
        const auto tOwn = os::realProcessList().running(search());
        HelpedProcessList tList(descriptor(tFd), {});
        return tOwn && tOwn->isEmpty() && isAnswered(tList);
    });
    EXPECT_TRUE(tAsker.isReady());
}

TEST_F(VkprocessesTest, AnswersTheOwnerOfItsSocketAlone)
{
    const QByteArray tSocket = path("socket");
    HelpedProcessList tList(folder("socket"));
    EXPECT_FALSE(tList.inUse({folder("unused")})) << "there is none yet";
    const Program tSystemd(q("/usr/bin/systemd-socket-activate"),
                           {"--accept", "--inetd", "-l", tSocket, BUILD_DIR "/libexec/vkprocesses"},
                           {{"PATH", "/usr/bin"}});
    const QString tChildrenFile = q("/proc/%1/task/%1/children").arg(tSystemd.pid());
    while (!QFile::exists(folder("socket"))) {
        std::this_thread::yield();
    }
    ASSERT_EQ(::chmod(tSocket.constData(), 0666) + ::chown(tSocket.constData(), 65534, 65534), 0);
    EXPECT_TRUE(isTrueAs(65534, [&] { return isAnswered(tList); }));
    EXPECT_FALSE(isTrueAs(1, [&] { return tList.running(search()) || tList.inUse({folder("unused")}); }));
    // Root may ask, too, about files of root; after the end of one process the next question starts another
    // one.
    for (int tRound = 0; tRound < 2; ++tRound) {
        const auto tRunning = tList.running(search());
        ASSERT_TRUE(tRunning) << tRunning.failure().mText.toStdString();
        EXPECT_TRUE(*tRunning == QList({os::Process{mOther->pid(), q("sleep"), folder("roots/sleep")}}));
        ::kill(readFile(tChildrenFile).trimmed().split(' ').last().toInt(), SIGKILL);
    }
}

// Also code of an attacker in it could do none of this.
TEST(RightsTest, NothingButReadingIsLeft)
{
    const QTemporaryDir tDir;
    const QByteArray tPath = QFile::encodeName(tDir.filePath(q("file")));
    writeFile(tDir.filePath(q("file")), "text");
    const auto tIsDenied = [](long pResult) { return pResult == -1 && errno == EPERM; };
    const std::function<bool()> tCases[] = {
        [&] { return tIsDenied(::open(tPath.constData(), O_RDWR)); },
        [&] { return tIsDenied(::open((tPath + "2").constData(), O_RDONLY | O_CREAT, 0600)); },
        [&] { return tIsDenied(::unlink(tPath.constData())); },
        [&] { return tIsDenied(::socket(AF_UNIX, SOCK_STREAM, 0)); },
        [&] { return tIsDenied(::fork()); },
        [&] { return tIsDenied(::execl("/bin/true", "true", nullptr)); },
        [&] { return tIsDenied(::ptrace(PTRACE_ATTACH, ::getppid(), nullptr, nullptr)); },
        [&] { return tIsDenied(::kill(::getppid(), 0)); },
        [&] { return tIsDenied(::syscall(SYS_tgkill, ::getppid(), ::getppid(), 0)); },
        [&] {
            return ::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) ==
                   MAP_FAILED;
        },
        [&] {
            const int tFd = ::open("/proc/self/mem", O_RDONLY);
            char tByte = 0;
            return tFd >= 0 && ::read(tFd, &tByte, 1) == -1 && tIsDenied(::lseek(tFd, 4096, SEEK_SET)) &&
                   tIsDenied(::pread(tFd, &tByte, 1, reinterpret_cast<off_t>(&tByte)));
        },
        [&] { return ::open(tPath.constData(), O_RDONLY) >= 0 && ::setuid(0) == -1; },
    };
    for (size_t i = 0; i < std::size(tCases); ++i) {
        const Child tChild([&] { return !vkprocesses::keepOnlySight() && tCases[i](); });
        EXPECT_TRUE(tChild.isReady()) << "case " << i;
    }
}

// An update waits only so long, believes nothing that was not asked, and then knows that it does not know.
TEST(HelpedProcessListTest, NoFaultOfTheOtherEndIsAnAnswer)
{
    const auto tFrame = [](const QByteArray& pBytes) {
        const quint32 tSize = static_cast<quint32>(pBytes.size());
        return QByteArray(reinterpret_cast<const char*>(&tSize), sizeof tSize) + pBytes;
    };
    const auto tZeroes = [](QByteArray pText) { return pText.replace('|', '\0'); };
    const struct
    {
        const char* mWhat;
        QByteArray mBytes;
        bool mEnds = true;
    } tCases[] = {
        {"it ends", ""},
        {"it hangs", "", false},
        {"it hangs in an answer", tFrame("/asked").chopped(1), false},
        {"it ends in an answer", tFrame(tZeroes("7|a|/asked/a|")).chopped(1)},
        {"it sends too much", QByteArray(4, '\xff') + QByteArray(100000, 'x')},
        {"no zero byte at the end", tFrame("/asked")},
        {"a folder that was not asked", tFrame(tZeroes("/other|"))},
        {"a file that was not asked", tFrame(tZeroes("7|a|/askedtoo/a|"))},
        {"no number", tFrame(tZeroes("x|a|/asked/a|"))},
        {"a negative number", tFrame(tZeroes("-1|a|/asked/a|"))},
        {"a long name", tFrame(tZeroes("7|" + QByteArray(65, 'a') + "|/asked/a|"))},
        {"half a process", tFrame(tZeroes("7|a|"))},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        for (const bool tRunning : {true, false}) {
            int tEnds[2];
            ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, tEnds), 0);
            const os::Descriptor tOther = descriptor(tEnds[1]);
            sendAll(tOther.fd(), tCase.mBytes);
            if (tCase.mEnds) {
                ::shutdown(tOther.fd(), SHUT_WR);
            }
            HelpedProcessList tList(descriptor(tEnds[0]), {100, 100});
            const Failure tFailure =
                tRunning ? tList.running({.mFolders = {q("/asked")}, .mScripts = {}, .mPlaces = {}}).failure()
                         : tList.inUse({q("/asked")}).failure();
            EXPECT_TRUE(tFailure.mText.startsWith(q("vkprocesses, which sees")))
                << tFailure.mText.toStdString();
        }
    }
}
