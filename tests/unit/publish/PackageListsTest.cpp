// The lists of packages in the key folder: a failure or a kill at every operation on the disk.
#include "FaultyFileSystem.h"
#include "Publisher.h"

using namespace tarn::vkpublish;

namespace {

class PackageListsTest : public PublisherTest
{
protected:
    using State = std::tuple<TargetList, TargetList, TargetList, QMap<QString, qint64>>;
    using Action = tarn::Failure (*)(KeyFolder&);

    State state() const
    {
        KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        const tarn::Failure tFailure = tKeys.openForReading();
        EXPECT_FALSE(tFailure) << tFailure.mText;
        const Record& tRecord = tKeys.mRecord;
        return {tRecord.mTargets, tRecord.mPublishedTargets, tRecord.mWithdrawnTargets, tRecord.mVersions};
    }

    tarn::Failure act(tarn::os::FileSystem& pFileSystem, Action pAction) const
    {
        KeyFolder tKeys(pFileSystem, path("r.keys"));
        return pAction(tKeys);
    }

    static QJsonObject target(int pLength) { return QJsonObject{{q("length"), pLength}}; }
};

tarn::Failure addOne(KeyFolder& pKeys)
{
    if (tarn::Failure tFailure = pKeys.openPackages(q("b-2"))) {
        return tFailure;
    }
    pKeys.mRecord.mTargets.insert(q("b-2"), QJsonObject{{q("length"), 7}});
    return pKeys.savePackage(q("b-2"));
}

tarn::Failure publishAll(KeyFolder& pKeys)
{
    if (tarn::Failure tFailure = pKeys.open()) {
        return tFailure;
    }
    Record& tRecord = pKeys.mRecord;
    tRecord.mWithdrawnTargets.insert(q("a-1"), tRecord.mPublishedTargets[q("a-1")].toObject());
    tRecord.mPublishedTargets = tRecord.mTargets;
    tRecord.mVersions[q("targets")] = 9;
    return pKeys.save();
}

TEST_F(PackageListsTest, AreAsBeforeOrAsAfterAChangeThatIsStoppedAnywhere)
{
    succeed("init @r --no-passphrase");
    {
        KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        ASSERT_FALSE(tKeys.open());
        tKeys.mRecord.mPublishedTargets =
            QJsonObject{{q("a-1"), target(1)}, {q("b-2"), target(2)}, {q("c-3"), target(3)}};
        tKeys.mRecord.mTargets = QJsonObject{{q("b-2"), target(5)}, {q("c-3"), target(3)}};
        tKeys.mRecord.mWithdrawnTargets = QJsonObject{{q("z-1"), target(1)}};
        ASSERT_FALSE(tKeys.save());
    }
    ASSERT_FALSE(act(tarn::os::realFileSystem(), &addOne));
    const QByteArray tLog =
        "r.keys/packages/" + files("r.keys/packages").filter(q("changes")).last().toUtf8();
    copy("r.keys", "new.keys");
    write(tLog.constData(), readFile(path(tLog.constData())) + "0123456789 b-2 {\"len");
    copy("r.keys", "torn.keys");
    makeOldRecord();
    copy("r.keys", "old.keys");
    const std::tuple<const char*, Action> sCases[] = {
        {"new.keys", &addOne},     {"torn.keys", &addOne},     {"old.keys", &addOne},
        {"new.keys", &publishAll}, {"torn.keys", &publishAll}, {"old.keys", &publishAll},
    };
    for (const auto& [tFolder, tAction] : sCases) {
        copy(tFolder, "r.keys");
        const State tBefore = state();
        ASSERT_FALSE(act(tarn::os::realFileSystem(), tAction));
        const State tAfter = state();
        bool tFailed = true;
        for (int i = 2; tFailed; ++i) {
            const bool tForGood = i % 2 == 0;
            SCOPED_TRACE(testing::Message()
                         << tFolder << (tAction == &addOne ? " addition" : " publication") << ", operation "
                         << i / 2 << (tForGood ? " and all behind it" : ""));
            copy(tFolder, "r.keys");
            FaultyFileSystem tFileSystem;
            tFileSystem.mForGood = tForGood;
            tFileSystem.failAt(i / 2, ENOSPC);
            const tarn::Failure tFailure = act(tFileSystem, tAction);
            tFailed = tFileSystem.hasFailed();
            const State tSeen = state();
            EXPECT_TRUE(tSeen == tAfter || (tFailure && tSeen == tBefore)) << tFileSystem.failed();
            const tarn::Failure tAgain = act(tarn::os::realFileSystem(), tAction);
            EXPECT_FALSE(tAgain) << tAgain.mText;
            EXPECT_EQ(std::get<0>(state()), std::get<0>(tAfter));
            ASSERT_LT(i, 200);
        }
    }
}

TEST_F(PackageListsTest, PackagesAreFoundByTheirPrefix)
{
    succeed("init @r --no-passphrase");
    QStringList tNames;
    TargetList tPublished;
    for (int i = 0; i < 90; ++i) {
        tNames.append(q("%1-%2").arg(QString::number(i * i, 3), QString(i % 7, u'x')));
        tPublished.insert(tNames.last(), QJsonObject{{q("text"), QString(i % 9 == 0 ? 9000 : i, u'y')}});
    }
    {
        KeyFolder tKeys(tarn::os::realFileSystem(), path("r.keys"));
        ASSERT_FALSE(tKeys.open());
        tKeys.mRecord.mTargets = tPublished;
        tKeys.mRecord.mPublishedTargets = tPublished;
        ASSERT_FALSE(tKeys.save());
    }
    for (const QString& tPrefix : tNames + QStringList{q("!"), q("1"), q("10"), q("2"), q("~"), q("0-")}) {
        KeyFolder tSome(tarn::os::realFileSystem(), path("r.keys"));
        const tarn::Failure tFailure = tSome.openPackages(tPrefix);
        EXPECT_FALSE(tFailure) << tFailure.mText;
        EXPECT_EQ(tSome.mRecord.mPublishedTargets.keys(), tPublished.keysWithPrefix(tPrefix)) << tPrefix;
        EXPECT_EQ(tSome.mRecord.mTargets, tSome.mRecord.mPublishedTargets);
    }
}

// Without a lock, while the files that the record named before are replaced.
TEST_F(PackageListsTest, AReaderSeesNoStateInBetween)
{
    succeed("init @r --no-passphrase");
    for (int i = 1; i < 20; ++i) {
        FaultyFileSystem tFileSystem;
        QList<qint64> tVersions;
        tFileSystem.mObserver = [&](int, const QByteArray&) {
            const State tSeen = state();
            const qint64 tLength = std::get<1>(tSeen)[q("a")][q("length")].toInteger();
            EXPECT_EQ(std::get<3>(tSeen)[q("targets")], tLength);
            EXPECT_EQ(std::get<0>(tSeen)[q("a")][q("length")].toInteger(), tLength);
        };
        KeyFolder tKeys(tFileSystem, path("r.keys"));
        ASSERT_FALSE(tKeys.open());
        tKeys.mRecord.mTargets.insert(q("a"), target(i));
        tKeys.mRecord.mPublishedTargets.insert(q("a"), target(i));
        tKeys.mRecord.mVersions[q("targets")] = i;
        ASSERT_FALSE(tKeys.save());
        EXPECT_LE(files("r.keys/packages").size(), 4) << "the files before, and the present ones";
    }
}

} // namespace
