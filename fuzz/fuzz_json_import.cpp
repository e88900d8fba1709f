// Bytes from a file the user picked, through the export file's decoder. Whatever it accepts must
// encode to JSON that another parser reads and that decodes to the same values, encoding the
// same way again; whatever it refuses must be refused with words. Decoding touches no store.
#include "safety/DataExportFormat.h"

#include <QJsonDocument>

#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

[[noreturn]] void failed(const char *what, const QByteArray &text)
{
    std::fprintf(stderr, "fuzz_json_import: %s\n%s\n", what, text.left(2000).constData());
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArrayView unit(reinterpret_cast<const char *>(data), qsizetype(size));
    ExportData decoded;
    try {
        decoded = DataExportFormat::decode(unit);
    } catch (const DataExportFormat::DecodeError &error) {
        if (error.description().isEmpty())
            failed("a refusal without words", unit.toByteArray());
        return 0;
    }
    const QByteArray encoded = DataExportFormat::encode(decoded);
    QJsonParseError parsed;
    QJsonDocument::fromJson(encoded, &parsed);
    if (parsed.error != QJsonParseError::NoError)
        failed("the encoded text isn't JSON to QJsonDocument", encoded);
    try {
        const ExportData again = DataExportFormat::decode(encoded);
        if (!(again == decoded))
            failed("decoding the encoded text gives other values", encoded);
        if (DataExportFormat::encode(again) != encoded)
            failed("encoding is not stable", encoded);
    } catch (const DataExportFormat::DecodeError &error) {
        failed(qPrintable(u"the encoded text is refused: "_s + error.description()), encoded);
    }
    return 0;
}
