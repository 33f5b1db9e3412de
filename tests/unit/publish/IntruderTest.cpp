// Others who may write to the repository's folder, but not to that of the keys.
#include "Publisher.h"

#include <sys/stat.h>
#include <unistd.h>

namespace {

class IntruderTest : public PublisherTest
{
protected:
    IntruderTest()
    {
        succeed("init @r --no-passphrase");
        succeed("add @r @f --name a --version 1");
        succeed("publish @r");
        write("theirs", "precious");
    }

    QByteArray encoded(const QString& pBelow) const { return (mDir.path() + u'/' + pBelow).toUtf8(); }
};

TEST_F(IntruderTest, WhatStandsWhereANewFileIsMadeIsNotWrittenTo)
{
    write("f/data", QByteArray(20'000, 'x'));
    for (const char* tName : {"r/targets/.a-2.0.0.0.tar.zst.new", "r/targets/.delta.new"}) {
        ASSERT_EQ(::link(encoded(q("theirs")).constData(), encoded(q(tName)).constData()), 0);
    }
    succeed("add @r @f --name a --version 2");
    succeed("publish @r");
    EXPECT_EQ(readFile(path("theirs")), "precious");
    EXPECT_EQ(run("verify @r").mErr, "");
}

TEST_F(IntruderTest, APipeInPlaceOfAPackageHoldsNothingUp)
{
    write("f/data", QByteArray(20'000, 'x'));
    succeed("add @r @f --name a --version 2");
    const QString tFile = q("r/targets/") + files("r/targets").filter(q("a-2.0.0.0.tar.zst")).value(0);
    ASSERT_TRUE(QFile::remove(mDir.filePath(tFile)));
    ASSERT_EQ(::mkfifo(encoded(tFile).constData(), 0600), 0);
    EXPECT_TRUE(run("publish @r").mErr.contains("is no file"));
    EXPECT_TRUE(run("publish @r --deltas 0").mErr.contains("is missing or was changed"));
    EXPECT_EQ(followAsClient(), q("a-1.0.0.0.tar.zst"));
}

TEST_F(IntruderTest, NothingIsDeletedBehindALinkOfAnotherUser)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a link away";
    }
    copy("r/targets", "theirs.d");
    write("theirs.d/file", "precious");
    QDir(path("r/targets")).removeRecursively();
    for (const uid_t tOwner : {uid_t(65534), uid_t(0)}) {
        QFile::remove(path("r/targets"));
        ASSERT_TRUE(QFile::link(path("theirs.d"), path("r/targets")));
        ASSERT_EQ(::lchown(encoded(q("r/targets")).constData(), tOwner, tOwner), 0);
        const Program::Result tResult = run("publish @r --prune --prune-days 0");
        EXPECT_EQ(tResult.mErr.contains("link that another user has made"), tOwner != 0) << tResult.mErr;
        EXPECT_EQ(QFile::exists(path("theirs.d/file")), tOwner != 0);
    }
}

} // namespace
