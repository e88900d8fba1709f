#pragma once

#include "DataExportFormat.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <exception>
#include <optional>

class ModelContext;

// An export that couldn't be written, in words the user reads as they stand.
class ExportError : public std::exception {
public:
    enum class Kind { writeFailed };

    static ExportError writeFailed(QString error) { return ExportError(Kind::writeFailed, error); }

    Kind kind() const { return m_kind; }
    QString errorDescription() const;
    const char *what() const noexcept override { return "ExportError"; }

private:
    ExportError(Kind kind, QString error)
        : m_kind(kind)
        , m_error(std::move(error))
    {
    }

    Kind m_kind;
    QString m_error;
};

// An import that was refused or failed; the store is then as it was before.
class ImportError : public std::exception {
public:
    enum class Kind { decodingFailed, saveFailed, invalidFile };

    static ImportError decodingFailed(QString error)
    {
        return ImportError(Kind::decodingFailed, error);
    }
    static ImportError saveFailed(QString error) { return ImportError(Kind::saveFailed, error); }
    static ImportError invalidFile() { return ImportError(Kind::invalidFile, QString()); }

    Kind kind() const { return m_kind; }
    QString errorDescription() const;
    const char *what() const noexcept override { return "ImportError"; }

private:
    ImportError(Kind kind, QString error)
        : m_kind(kind)
        , m_error(std::move(error))
    {
    }

    Kind m_kind;
    QString m_error;
};

// What an import added and what it recognised as already there.
struct ImportSummary {
    int entriesAdded = 0;
    int meetingsAdded = 0;
    int goalsAdded = 0;
    int milestonesAdded = 0;
    int inboxAdded = 0;
    int entriesSkipped = 0;
    int meetingsSkipped = 0;
    int goalsSkipped = 0;
    bool operator==(const ImportSummary &) const = default;
};

// The journal's pages, meetings, goals and inbox as a JSON file other programs can read, and
// the import of such a file, which adds what's missing and never overwrites what the store has.
// Images, tasks, documents, recaps, stories and reviews are not in the file: it is no backup.
//
// Everything that touches the store runs on the main thread. readFile() and the format's decode
// touch no store, so a caller with a large file may run them on a worker thread and hand the
// ExportData back to apply().
namespace DataExporter {

// The store's records as the file's values. A failed fetch counts as no records.
ExportData collect(ModelContext &context);
// collect() encoded as the file's bytes.
QByteArray exportData(ModelContext &context);
// Writes exportData() to the path atomically: the file is whole or as it was. Raises ExportError.
void exportToFile(ModelContext &context, const QString &path);
// The name a save panel proposes: "tovren-export-{today in the user's locale}.json".
QString proposedFileName();

// Reads and decodes a file. Raises ImportError (invalidFile, decodingFailed).
ExportData readFile(const QString &path);
// Adds the file's records that the store doesn't have, in one save. Records are recognised by
// their ids only, and every record added gets a new id. Raises ImportError (saveFailed), after
// taking its own insertions back out of the context.
ImportSummary apply(const ExportData &data, ModelContext &context);
// decode() then apply(); raises ImportError (decodingFailed, saveFailed).
ImportSummary importData(QByteArrayView bytes, ModelContext &context);
// readFile() then apply(); raises ImportError.
ImportSummary importFromFile(const QString &path, ModelContext &context);

// "Added 2 entries, 1 meeting. Skipped 3 duplicates." for the alert after an import.
QString restoreSummaryMessage(const ImportSummary &summary);

// Instants as the file writes them: ISO 8601 in UTC with seconds and without fractions.
QString dateText(const QDateTime &instant);
// A file's date text, or nothing when it isn't an ISO 8601 date.
std::optional<QDateTime> parseDate(const QString &text);

} // namespace DataExporter
