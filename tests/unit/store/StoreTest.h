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
        QString tError;
        ASSERT_TRUE(mStore.open(mDir.path(), &tError)) << tError;
    }
    QString file() const { return mDir.path() + q("/state.db"); }

    QTemporaryDir mDir;
    tarn::vkservice::store::StateStore mStore;
};
