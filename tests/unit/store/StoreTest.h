#pragma once

#include "store/StateStore.h"
#include "Test.h"

// A store in a private folder. What has to survive the process is read after reopen().
class StoreTest : public testing::Test
{
protected:
    void SetUp() override { reopen(); }

    void reopen()
    {
        mStore.database().close();
        const tarn::Failure tFailure = mStore.open(mDir.path());
        ASSERT_FALSE(tFailure) << tFailure.mText;
    }
    QString file() const { return mDir.path() + q("/state.db"); }

    QTemporaryDir mDir;
    tarn::vkservice::store::StateStore mStore;
};
