#include "ClientTest.h"

static QByteArray usage(const QString& pName)
{
    QFile tFile(q(USAGE_DIR) + u'/' + pName + q(".txt"));
    EXPECT_TRUE(tFile.open(QIODevice::ReadOnly));
    return tFile.readAll();
}

TEST(CommandLineTest, HelpPrintsTheUsageOfTheCommand)
{
    const QStringList tFiles = QDir(q(USAGE_DIR)).entryList({q("*.txt")});
    ASSERT_EQ(tFiles.size(), 14); // all commands, and the one for no command
    const Installation tInstallation;
    for (const QString& tFile : tFiles) {
        const QString tName = tFile.chopped(4);
        SCOPED_TRACE(tName);
        QList<QByteArray> tArguments{"--help"};
        if (tName != q("rkm")) {
            tArguments.prepend(tName.toUtf8());
        }
        expectResult(tInstallation.run(tArguments), usage(tName), "", 0);
    }
}

TEST(CommandLineTest, TheFrameAnswersWithoutAService)
{
    const QByteArray tUsage = usage(q("rkm"));
    const QByteArray tVersion = "1.0.0\n";
    check({
        ok({}, tUsage),
        ok({"-h"}, tUsage),
        ok({"--"}, tUsage),
        ok({"--socket=/nowhere"}, tUsage),
        ok({"--socket", "--help"}, tUsage),
        // the value of --socket
        ok({"--version"}, tVersion),
        ok({"--version", "--help"}, tVersion),
        ok({"--vers"}, tVersion),
        ok({"update", "--version"}, tVersion),
        ok({"list-servers", "--help=x"}, usage(q("list-servers"))),
        Case({"nonsense", "--version"}, tVersion, "Unknown command: nonsense\n", 0),
        Case({"nonsense"}, tUsage, "Unknown command: nonsense\n", 1),
        Case({"nonsense", "--help"}, tUsage, "Unknown command: nonsense\n", 1),
        Case({""}, tUsage, "Unknown command: \n", 1),
        Case({"Update"}, tUsage, "Unknown command: Update\n", 1),
        Case({"upd"}, tUsage, "Unknown command: upd\n", 1),
        Case({"обновить%1"}, tUsage, "Unknown command: обновить%1\n", 1),
        Case({"a\xff"}, tUsage, "Unknown command: a\xef\xbf\xbd\n", 1),
    });
}

TEST(CommandLineTest, RefusesWhatItDoesNotKnow)
{
    check({
        fails({"nonsense", "--bad"}, "Unknown command: nonsense\nUnknown option: '--bad'\n"),
        fails({"nonsense", "word"}, "Unknown command: nonsense\nUnhandled argument 'word'\n"),
        fails({"-"}, "Unhandled argument '-'\n"),
        fails({"--socket", "x", "update"}, "Unhandled argument 'update'\n"),
        fails({"--socket"}, "Option '--socket' requires an argument\n"),
        fails({"update", "--bad", "word"}, "Unknown option: '--bad'\n"),
        fails({"update", "-h", "word", "more"}, "Unhandled argument 'word'\n"),
        fails({"update", "--", "-q"}, "Unhandled argument '-q'\n"),
        fails({"update", "-x"}, "Unknown option: 'x'\n"),
        fails({"update", "-qx"}, "Unknown option: 'x'\n"),
        fails({"update", "--xy=1"}, "Unknown option: '--xy'\n"),
        fails({"update", "--qu"}, "Unknown option: '--qu'\n"),
        fails({"update", "-quiet"}, "Unknown option: 'u'\n"),
        fails({"update-settings", "--pro=x"}, "Unknown option: '--pro'\n"),
        fails({"update-settings", "-s"}, "Option '--server' requires an argument\n"),
        fails({"update-settings", "--serv"}, "Option '--server' requires an argument\n"),
        fails({"update-settings", "--ключ"}, "Unknown option: '--ключ'\n"),
        fails({"list-servers", "a\xff"}, "Unhandled argument 'a\xef\xbf\xbd'\n"),
    });
}

TEST(CommandLineTest, TheNextWordIsTheValueWhateverItLooksLike)
{
    check({
        ok({"update-settings", "--data-dir", "--config-var=a:b"}, sApplied,
           guarded({R"(setKdmlDataDirectory {"path":"--config-var=a:b"})", "reloadConfig"})),
        ok({"update-settings", "-dpath"}, sApplied,
           guarded({R"(setKdmlDataDirectory {"path":"path"})", "reloadConfig"})),
        ok({"update-settings", "--data-dir=a", "-d", "b"}, sApplied,
           guarded({R"(setKdmlDataDirectory {"path":"b"})", "reloadConfig"})),
        ok({"update-settings", "--data-d=a"}, sApplied,
           guarded({R"(setKdmlDataDirectory {"path":"a"})", "reloadConfig"})),
        fails({"update-settings", "--dat=a"}, "Unknown option: '--dat'\n"),
    });
}
