#include "TestSupport.h"
#include "core/DataLocations.h"
#include "core/ImageStorage.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QUuid imageId = QUuid::fromString(u"0f8e3c2a-7b4d-4e1f-9a6b-5c3d2e1f0a9b"_s);
const QString imageRef = u"0F8E3C2A-7B4D-4E1F-9A6B-5C3D2E1F0A9B"_s;

void expectWarning(const QString &start)
{
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(u'^' + QRegularExpression::escape(start) + u"\\S"_s));
}

} // namespace

class TestImageStorage : public QObject {
    Q_OBJECT

private slots:
    void init()
    {
        m_dir.emplace();
        QVERIFY(m_dir->isValid());
        // Success paths must stay silent; each failure test names the one warning it expects.
        QTest::failOnWarning(QRegularExpression(u".*"_s));
    }
    void cleanup() { m_dir.reset(); }

    void saveCreatesFolderAndRoundTrips()
    {
        const QString images = DataLocations::imagesDir();
        QVERIFY(!QFileInfo::exists(images));

        QCOMPARE(ImageStorage::save("first", imageId), imageRef);
        QCOMPARE(ImageStorage::pathFor(imageId), images + u'/' + imageRef + u".png"_s);
        QCOMPARE(QDir(images).entryList(QDir::Files), QStringList{imageRef + u".png"_s});
        QCOMPARE(ImageStorage::load(imageRef), QByteArray("first"));
        QCOMPARE(ImageStorage::load(imageRef.toLower()), QByteArray("first"));

        // Overwriting goes through a temporary file that must not be left behind.
        QCOMPARE(ImageStorage::save("second", imageId), imageRef);
        QCOMPARE(QDir(images).entryList(QDir::Files | QDir::Hidden | QDir::System),
                 QStringList{imageRef + u".png"_s});
        QCOMPARE(ImageStorage::load(imageRef), QByteArray("second"));

        QCOMPARE(ImageStorage::save(QByteArray(), imageId), imageRef);
        QCOMPARE(ImageStorage::load(imageRef), QByteArray(""));
    }

    void onlyExactIdTextIsAReference_data()
    {
        QTest::addColumn<QString>("ref");
        QTest::newRow("empty") << QString();
        QTest::newRow("words") << u"not an image"_s;
        QTest::newRow("braces") << u'{' + imageRef + u'}';
        QTest::newRow("file name") << imageRef + u".png"_s;
        QTest::newRow("trailing text") << imageRef + u"x"_s;
        QTest::newRow("leading space") << u' ' + imageRef;
        QTest::newRow("path") << u"../Images/"_s + imageRef;
        QTest::newRow("no dashes") << imageId.toString(QUuid::Id128);
    }

    void onlyExactIdTextIsAReference()
    {
        QFETCH(QString, ref);
        // Nothing may be read or created on the way to refusing the text.
        QCOMPARE(ImageStorage::load(ref), std::nullopt);
        QVERIFY(ImageStorage::remove(ref));
        QVERIFY(!QFileInfo::exists(DataLocations::dataRoot() + u"/Tovren"_s));

        // With the image in place, a lax parser would find or delete it.
        QVERIFY(ImageStorage::save("kept", imageId));
        QCOMPARE(ImageStorage::load(ref), std::nullopt);
        QVERIFY(ImageStorage::remove(ref));
        QCOMPARE(ImageStorage::load(imageRef), QByteArray("kept"));
    }

    void removeIsDoneWhenTheFileIsGone()
    {
        QVERIFY(ImageStorage::remove(imageRef));
        QVERIFY(!QFileInfo::exists(DataLocations::imagesDir()));

        QVERIFY(ImageStorage::save("bytes", imageId));
        QVERIFY(ImageStorage::remove(imageRef.toLower()));
        QVERIFY(!QFileInfo::exists(ImageStorage::pathFor(imageId)));
        QCOMPARE(ImageStorage::load(imageRef), std::nullopt);
        QVERIFY(ImageStorage::remove(imageRef));
    }

    // The tests run as root, so failures come from things in the way rather than permissions.
    void failuresAreLoggedAndReported()
    {
        const QString images = DataLocations::imagesDir();
        QVERIFY(QDir().mkpath(QFileInfo(images).path()));
        writeFile(images, "a file where the folder should be");
        expectWarning(u"Couldn't access the images folder: "_s);
        QCOMPARE(ImageStorage::save("bytes", imageId), std::nullopt);

        QVERIFY(QFile::remove(images));
        QVERIFY(QDir().mkpath(ImageStorage::pathFor(imageId) + u"/inside"_s));
        expectWarning(u"Couldn't save the image: "_s);
        QCOMPARE(ImageStorage::save("bytes", imageId), std::nullopt);
        QCOMPARE(ImageStorage::load(imageRef), std::nullopt);
        expectWarning(u"Couldn't delete the image: "_s);
        QVERIFY(!ImageStorage::remove(imageRef));
    }

private:
    std::optional<TempDataDir> m_dir;
};

QTEST_GUILESS_MAIN(TestImageStorage)
#include "tst_imagestorage.moc"
