// Stored text through the editor and back: what the editor writes must read back to itself,
// match the dialect's own normal form, and never multiply the text.
#include "writing/EntryMarkup.h"
#include "writing/MarkdownDialect.h"

#include <QGuiApplication>
#include <QImage>
#include <QTextDocument>
#include <QUuid>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

EntryMarkup::LoadOptions options()
{
    EntryMarkup::LoadOptions loadOptions;
    loadOptions.people = {
        {QUuid::fromString(u"{5b1f6c0e-0a41-4c7e-9d0b-2f3c4d5e6f70}"_s), u"Ann"_s}};
    // Every picture is there: the round trip is about text, and drawing the stand-in for a
    // missing one loads fonts, which Qt keeps past the exit check of the leak detector.
    loadOptions.image = [](const QString &) -> std::optional<QImage> {
        static const QImage pixel = [] {
            QImage image(1, 1, QImage::Format_RGB32);
            image.fill(Qt::white);
            return image;
        }();
        return pixel;
    };
    return loadOptions;
}

QString roundTrip(const QString &text)
{
    static const EntryMarkup::LoadOptions loadOptions = options();
    QTextDocument document;
    EntryMarkup::loadFromMarkdown(text, document, loadOptions);
    return EntryMarkup::serializeToMarkdown(document);
}

// Control characters shown as escapes, so a failing input can be read on a terminal.
QByteArray shown(const QString &text)
{
    QByteArray out;
    for (const char c : text.toUtf8()) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte == '\\' || (byte < 0x20 && byte != '\n'))
            out += "\\x" + QByteArray::number(byte, 16).rightJustified(2, '0');
        else
            out += c;
    }
    return out;
}

[[noreturn]] void fail(const char *what, const QString &text, const QString &written,
                       const QString &expected)
{
    std::fprintf(stderr, "%s\ninput:    %s\nwritten:  %s\nexpected: %s\n", what,
                 shown(text).constData(), shown(written).constData(), shown(expected).constData());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    // Headings set font sizes, which needs a GUI application; offscreen needs no display.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    static QGuiApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size > 4096)
        return 0;
    const QString text = QString::fromUtf8(reinterpret_cast<const char *>(data), qsizetype(size));
    const QString written = roundTrip(text);
    if (const QString again = roundTrip(written); again != written)
        fail("not a fixed point", text, written, again);
    if (const QString normal = MarkdownDialect::stabilized(text); normal != written)
        fail("differs from the dialect's normal form", text, written, normal);
    // Linear growth only. A table's header and separator are written for every column of its
    // widest row, so a cell typed as one "|" can cost twelve characters; other text, three.
    const qsizetype factor = text.contains(u'|') ? 12 : 3;
    if (written.size() > factor * text.size() + 16)
        fail("grew out of proportion", text, written, {});
    return 0;
}
