#pragma once

#include "writing/EntryMarkup.h"

#include <QGuiApplication>
#include <QTest>
#include <QTextDocument>
#include <QTimer>

#include <tuple>

// A data function's columns in one line: columns<QString, int>("text", "line").
template<typename... T, typename... Name>
void columns(Name... names)
{
    (QTest::addColumn<T>(names), ...);
}

// The current row's columns, in order, as QFETCH reads them: auto [a, b] = fetch<...>("a", "b").
template<typename... T, typename... Name>
std::tuple<T...> fetch(Name... names)
{
    return {*static_cast<T *>(QTest::qData(names, qMetaTypeId<T>()))...};
}

// Runs `act` on what `find` returns once it is not null, from the event loop: a modal dialog
// or menu blocks the call that opened it.
template<typename Find, typename Act>
void whenUp(Find find, Act act)
{
    auto *timer = new QTimer;
    timer->setInterval(20);
    QObject::connect(timer, &QTimer::timeout, [timer, find, act] {
        if (auto *found = find()) {
            timer->stop();
            timer->deleteLater();
            act(found);
        }
    });
    timer->start();
}

// A stored text through the editor's document and back.
inline QString roundTrip(const QString &text, const EntryMarkup::LoadOptions &options = {})
{
    QTextDocument document;
    EntryMarkup::loadFromMarkdown(text, document, options);
    return EntryMarkup::serializeToMarkdown(document);
}

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
