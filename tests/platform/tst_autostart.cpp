#include "TestSupport.h"
#include "platform/Autostart.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class AutostartTest : public QObject {
    Q_OBJECT

private:
    QTemporaryDir m_config;

private slots:
    void init()
    {
        QVERIFY(m_config.isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(m_config.path()));
        QFile::remove(Autostart::filePath());
    }

    void fileLivesInTheConfigHome()
    {
        QCOMPARE(Autostart::filePath(), m_config.path() + u"/autostart/tovren.desktop"_s);
        qunsetenv("XDG_CONFIG_HOME");
        QCOMPARE(Autostart::filePath(), QDir::homePath() + u"/.config/autostart/tovren.desktop"_s);
    }

    // Writing over an entry, or removing none, is not a failure.
    void enableWritesAnEntryThatStartsInTheBackgroundAndDisableRemovesIt()
    {
        QVERIFY(!Autostart::isEnabled());
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(Autostart::setEnabled(true), std::nullopt);
            QVERIFY(Autostart::isEnabled());
        }
        const QByteArray text = fileContents(Autostart::filePath());
        QVERIFY(text.startsWith("[Desktop Entry]\n"));
        // The test binary is not tovren, so the entry names the installed one.
        for (const char *line :
             {"\nType=Application\n", "\nName=Tovren\n", "\nExec=tovren --background\n"})
            QVERIFY2(text.contains(line), line);
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(Autostart::setEnabled(false), std::nullopt);
            QVERIFY(!QFile::exists(Autostart::filePath()));
            QVERIFY(!Autostart::isEnabled());
        }
    }

    void entryWrittenElsewhereIsReadAsItStands_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("enabled");
        QTest::newRow("plain") << QByteArray("[Desktop Entry]\nExec=tovren\n") << true;
        QTest::newRow("hidden") << QByteArray("[Desktop Entry]\nHidden=true\n") << false;
        QTest::newRow("hidden false") << QByteArray("[Desktop Entry]\nHidden=false\n") << true;
        QTest::newRow("switched off by the desktop")
            << QByteArray("[Desktop Entry]\nExec=tovren\nX-GNOME-Autostart-enabled=false\n")
            << false;
        QTest::newRow("switched on by the desktop")
            << QByteArray("[Desktop Entry]\nX-GNOME-Autostart-enabled=true\n") << true;
        QTest::newRow("key in another group")
            << QByteArray("[Desktop Entry]\nExec=tovren\n[Desktop Action x]\nHidden=true\n")
            << true;
    }
    void entryWrittenElsewhereIsReadAsItStands()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, enabled);
        writeFile(Autostart::filePath(), text);
        QCOMPARE(Autostart::isEnabled(), enabled);
    }

    // Whatever the path, the desktop must read the program back exactly.
    void programPathIsQuotedForTheDesktop_data()
    {
        QTest::addColumn<QString>("program");
        QTest::addColumn<QByteArray>("exec");
        QTest::newRow("plain") << u"/usr/bin/tovren"_s << QByteArray("/usr/bin/tovren");
        QTest::newRow("space") << u"/home/a b/tovren"_s << QByteArray("\"/home/a b/tovren\"");
        QTest::newRow("dollar and quote")
            << u"/opt/$x\"y/tovren"_s << QByteArray("\"/opt/\\\\$x\\\\\"y/tovren\"");
        QTest::newRow("backslash")
            << u"/opt/a\\b/tovren"_s << QByteArray("\"/opt/a\\\\\\\\b/tovren\"");
        QTest::newRow("accents") << u"/home/zoé/tovren"_s << QByteArray("/home/zoé/tovren");
    }
    void programPathIsQuotedForTheDesktop()
    {
        QFETCH(QString, program);
        QFETCH(QByteArray, exec);
        const QByteArray line = "\nExec=" + exec + " --background\n";
        QVERIFY2(Autostart::entryText(program).contains(line),
                 Autostart::entryText(program).constData());
    }

    // Folders where files should be fail alike for root and for anyone else.
    void failureIsToldInWords_data()
    {
        QTest::addColumn<bool>("enable");
        QTest::addColumn<QString>("inTheWay");
        QTest::addColumn<QString>("opening");
        QTest::newRow("autostart folder is a file")
            << true << u"autostart"_s << u"Tovren couldn't set itself to open at login: "_s;
        QTest::newRow("entry is a folder") << true << u"autostart/tovren.desktop/x"_s
                                           << u"Tovren couldn't set itself to open at login: "_s;
        QTest::newRow("entry can't be removed") << false << u"autostart/tovren.desktop/x"_s
                                                << u"Tovren couldn't stop opening at login: "_s;
    }
    void failureIsToldInWords()
    {
        QFETCH(bool, enable);
        QFETCH(QString, inTheWay);
        QFETCH(QString, opening);
        QDir(m_config.path()).removeRecursively();
        writeFile(m_config.path() + u'/' + inTheWay, "in the way");

        const std::optional<QString> error = Autostart::setEnabled(enable);
        QVERIFY(error.has_value());
        QVERIFY2(error->startsWith(opening), qPrintable(*error));
        QVERIFY(error->contains(Autostart::filePath()));
        QVERIFY(!Autostart::isEnabled());
    }
};

QTEST_GUILESS_MAIN(AutostartTest)
#include "tst_autostart.moc"
