// What stands beside a package, and the marks of security fixes, with the built vkpublish.
#include "publication/Verification.h"
#include "Publisher.h"

using namespace tarn::vkpublish;

namespace {

class EvidenceTest : public PublisherTest
{
protected:
    EvidenceTest()
    {
        succeed("init @r --no-passphrase");
        write("advisory", "CVE-2026-1:\n\tgr\xc3\xb6\xc3\x9f"
                          "er als erwartet\n");
        write("sbom", "{}");
    }

    Program::Result add(const QByteArray& pOptions) const
    {
        return run("add @r @f --name viewer --date 2026-03-01 " + pOptions);
    }
    QByteArray list() const { return run("list @r").mOut; }
    QStringList attached() const
    {
        return files("r/targets").filter(QRegularExpression(q("(advisory|sbom)$")));
    }
};

TEST_F(EvidenceTest, AttachedFilesGoWithTheirPackage)
{
    const QByteArray tBoth = "--version 1 --attach sbom=" + path("sbom").toUtf8() +
                             " --attach advisory=" + path("advisory").toUtf8();
    ASSERT_EQ(add(tBoth).mStatus, 0);
    succeed("publish @r");
    const QStringList tFiles = attached();
    EXPECT_EQ(tFiles.size(), 2);
    EXPECT_TRUE(list().contains("  advisory, sbom  ")) << list().constData();
    succeed("verify @r");
    succeed("mirror @r @m --root @r/metadata/1.root.json");
    succeed("publish @r --prune --prune-days 0");
    EXPECT_EQ(files("m/targets"), files("r/targets"));
    ASSERT_EQ(add(tBoth + " --replace").mStatus, 0);
    EXPECT_TRUE(list().contains("  published")) << "the same input makes the same package";

    // Another text alone is the same package to machines that have it.
    write("advisory", "CVE-2026-2");
    const auto tAgain = add("--version 1 --replace --attach advisory=" + path("advisory").toUtf8());
    EXPECT_FALSE(tAgain.mOut.contains(", dated ")) << tAgain.mOut.constData();
    succeed("publish @r --prune --prune-days 0");
    EXPECT_EQ(attached().size(), 1);
    const QString tFile = path("r/targets/") + attached().value(0);
    for (const char* tWrong : {"CVE-2026-3", ""}) {
        writeFile(tFile, tWrong);
        EXPECT_TRUE(run("verify @r").mErr.contains(".advisory"));
    }
    QFile::remove(tFile);
    EXPECT_EQ(run("verify @r").mStatus, 1);
}

TEST_F(EvidenceTest, RefusesWhatIsNoEvidence)
{
    const QByteArray tAdvisory = path("advisory").toUtf8();
    const std::pair<QByteArray, int> tCases[] = {
        {"--attach " + tAdvisory, 2},
        {"--attach advisory=", 2},
        {"--attach manual=" + tAdvisory, 2},
        {"--attach sbom=" + tAdvisory + " --attach sbom=" + tAdvisory, 2},
        {"--attach sbom=" + path("nothing").toUtf8(), 1},
        {"--attach sbom=" + path("f").toUtf8(), 1},
        {"--security-since 1.1", 2},
        {"--security-since one", 2}};
    for (const auto& [tOptions, tStatus] : tCases) {
        const auto tResult = add("--version 1 " + tOptions);
        EXPECT_EQ(tResult.mStatus, tStatus) << tOptions.constData();
        EXPECT_EQ(tResult.mErr.count('\n'), 1) << tResult.mErr.constData();
    }
    for (const QByteArray& tText : {QByteArray(), QByteArray(" \n"), QByteArray("\xff"),
                                    QByteArray("a\0b", 3), QByteArray("\x1b[2J"), QByteArray(65537, 'a')}) {
        write("advisory", tText);
        EXPECT_EQ(add("--version 1 --attach advisory=" + tAdvisory).mStatus, 1) << tText.size();
    }
    EXPECT_EQ(files("r/targets"), QStringList());
}

TEST_F(EvidenceTest, AFixGoesOnInLaterVersions)
{
    const auto tMark = [this](const QByteArray& pOptions) {
        const auto tResult = add(pOptions);
        EXPECT_EQ(tResult.mStatus, 0) << tResult.mErr.constData();
        const qsizetype tAt = tResult.mOut.indexOf("below ");
        return tAt < 0 ? QByteArray() : tResult.mOut.mid(tAt + 6).trimmed();
    };
    EXPECT_EQ(tMark("--version 1.0"), "");
    EXPECT_EQ(tMark("--version 1.2 --security --attach advisory=" + path("advisory").toUtf8()), "1.2.0");
    EXPECT_EQ(tMark("--version 1.1"), "") << "of another line";
    EXPECT_EQ(tMark("--version 1.2 --language de"), "") << "another package";
    succeed("publish @r");
    succeed("remove @r viewer --version 1.2");
    succeed("publish @r");
    EXPECT_EQ(tMark("--version 1.3"), "1.2.0") << "also after the version that brought it is gone";
    EXPECT_EQ(tMark("--version 1.4 --security-since 1.1"), "1.2.0");
    EXPECT_EQ(tMark("--version 1.5 --security-since 1.3"), "1.3.0");
    EXPECT_TRUE(list().contains("  security since 1.3.0  "));
    EXPECT_EQ(list().count("  advisory  "), 2) << "only those with the fix that it is about";
    succeed("publish @r --prune --prune-days 0");
    EXPECT_EQ(tMark("--version 1.2 --replace"), "") << "taken back";
    succeed("remove @r viewer --version 1.5");
    succeed("remove @r viewer --version 1.4");
    EXPECT_EQ(tMark("--version 1.3 --replace"), "");
}

} // namespace
