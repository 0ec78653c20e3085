#include <QCoreApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
#ifndef VELMORA_NO_APPLICATION
    QCoreApplication application(argc, argv);
#endif
    return RUN_ALL_TESTS();
}
