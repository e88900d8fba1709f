#pragma once

#include <QGuiApplication>
#include <QTest>

// Text documents measure fonts as soon as a heading size is set, which needs a GUI
// application; the offscreen platform gives one without a display.
#define WRITING_TEST_MAIN(TestObject)                                                              \
    int main(int argc, char *argv[])                                                               \
    {                                                                                              \
        if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))                                         \
            qputenv("QT_QPA_PLATFORM", "offscreen");                                               \
        QGuiApplication app(argc, argv);                                                           \
        TestObject test;                                                                           \
        QTEST_SET_MAIN_SOURCE_PATH                                                                 \
        return QTest::qExec(&test, argc, argv);                                                    \
    }
