// Stored text through the editor and back: what the editor writes must read back to itself,
// match the dialect's own normal form, and never multiply the text.
#include "writing/EntryMarkup.h"
#include "writing/MarkdownDialect.h"

#include <QGuiApplication>
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
    return loadOptions;
}

QString roundTrip(const QString &text)
{
    static const EntryMarkup::LoadOptions loadOptions = options();
    QTextDocument document;
    EntryMarkup::loadFromMarkdown(text, document, loadOptions);
    return EntryMarkup::serializeToMarkdown(document);
}

[[noreturn]] void fail(const char *what, const QString &text, const QString &written)
{
    std::fprintf(stderr, "%s\ninput:   %s\nwritten: %s\n", what, qPrintable(text),
                 qPrintable(written));
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
    if (roundTrip(written) != written)
        fail("not a fixed point", text, written);
    if (MarkdownDialect::stabilized(text) != written)
        fail("differs from the dialect's normal form", text, written);
    if (written.size() > 3 * text.size() + 16)
        fail("grew out of proportion", text, written);
    return 0;
}
