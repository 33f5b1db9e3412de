#include <gtest/gtest.h>

#include <QtCore/QCoreApplication>

int main(int pCount, char** pArguments)
{
    testing::InitGoogleTest(&pCount, pArguments);
    QCoreApplication tApplication(pCount, pArguments);
    return RUN_ALL_TESTS();
}
