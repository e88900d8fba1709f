#pragma once

#include <QDate>
#include <QList>
#include <QString>
#include <QUuid>

#include <functional>
#include <stdexcept>

class ModelContext;

// A copy of the journal any Markdown editor can read: one file per day as it was written, the
// pages' images beside them, and one file per person with the notes of their meetings. Made for
// people who want to know their words aren't locked in; nothing reads it back.
namespace MarkdownCopy {

struct File {
    QString relativePath; // "2025-03-14.md", "people/Ana Ruiz.md"
    QString text;         // as stored; image tokens become links when written
};

// Everything the copy holds, read from the store on the main thread; writing it needs no store
// and may run on a worker.
struct Contents {
    QList<File> files;
    QList<QUuid> images; // copied into images/ under their id
};

struct Summary {
    int days = 0;
    int people = 0;
    int images = 0;
};

class WriteError : public std::runtime_error {
public:
    explicit WriteError(const QString &message);
    QString message() const { return m_message; }

private:
    QString m_message;
};

Contents collect(ModelContext &context);
// Writes into the folder, making it; files of the same names are replaced. Throws WriteError.
Summary write(const Contents &contents, const QString &folder);

// A page's stored text with each image token turned into a link to its copied file, named by
// `fileName` (the id, with the suffix of the image's type).
QString withImageLinks(const QString &text, const QString &imagesPrefix,
                       const std::function<QString(const QUuid &)> &fileName);
// A person's name made safe as a file name, unique among those already taken.
QString fileNameFor(const QString &name, QStringList &taken);
// One line for the success: "Wrote 12 days and 3 people to …".
QString summaryText(const Summary &summary, const QString &folder);

} // namespace MarkdownCopy
