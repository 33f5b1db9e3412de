#include "ClientTest.h"

static QByteArray usage(const char* pName)
{
    return readFile(q(USAGE_DIR) + u'/' + q(pName) + q(".txt"));
}

TEST(CommandLineTest, TheFrameAnswersWithoutAService)
{
    const QByteArray tUsage = usage("rkm");
    const QByteArray tVersion = RKM_VERSION "\n";
    check({
        ok(Words{}, tUsage),
        ok("--socket --help", tUsage), // the value of --socket
        ok("--vers", tVersion),
        ok("update --version --help", tVersion),
        ok("update-settings --help=x", usage("update-settings")),
        ok("update-schedule-settings -h", usage("update-schedule-settings")),
        {"nonsense --version", tVersion, "Unknown command: nonsense\n", 0},
        {"nonsense", tUsage, "Unknown command: nonsense\n", 1},
        {"Update --help", tUsage, "Unknown command: Update\n", 1},
        {{""}, tUsage, "Unknown command: \n", 1},
        {"обновить%1", tUsage, "Unknown command: обновить%1\n", 1},
        {"a\xff", tUsage, "Unknown command: a\xef\xbf\xbd\n", 1},
    });
}

TEST(CommandLineTest, RefusesWhatItDoesNotKnow)
{
    check({
        fails("nonsense --bad", "Unknown command: nonsense\nUnknown option: '--bad'\n"),
        fails("-", "Unhandled argument '-'\n"),
        fails("--socket x update", "Unhandled argument 'update'\n"),
        fails("--socket", "Option '--socket' requires an argument\n"),
        fails("update -h word more", "Unhandled argument 'word'\n"),
        fails("update -- -q", "Unhandled argument '-q'\n"),
        fails("update -qx", "Unknown option: 'x'\n"),
        fails("update --xy=1", "Unknown option: '--xy'\n"),
        fails("update --qu", "Unknown option: '--qu'\n"),
        fails("update-settings --pro=x", "Unknown option: '--pro'\n"),
        fails("update-settings --serv", "Option '--server' requires an argument\n"),
        fails("update-settings --ключ", "Unknown option: '--ключ'\n"),
    });
}
