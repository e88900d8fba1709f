#include "MarkdownCopy.h"

#include "core/Clock.h"
#include "core/ImageStorage.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/store/ModelContext.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QMap>
#include <QMimeDatabase>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>

using namespace Qt::StringLiterals;

namespace MarkdownCopy {

namespace {

const QRegularExpression imageToken(u"\\{\\{img:([0-9A-Fa-f-]{36})(?:\\|[^}]*)?\\}\\}"_s);

QString dayName(const QDate &day)
{
    return day.toString(u"yyyy-MM-dd"_s);
}

QString personText(const Person &person, const Calendar &calendar)
{
    QString text = u"# "_s + person.name.trimmed() + u"\n"_s;
    QStringList about;
    if (!person.role.trimmed().isEmpty())
        about.append(person.role.trimmed());
    if (person.relationshipRaw)
        about.append(rawValue(person.relationship()));
    if (!about.isEmpty())
        text += u"\n"_s + about.join(u" · "_s) + u"\n"_s;

    QList<std::shared_ptr<Meeting>> meetings = person.meetings();
    std::stable_sort(meetings.begin(), meetings.end(),
                     [](const auto &a, const auto &b) { return a->date < b->date; });
    for (const auto &meeting : std::as_const(meetings)) {
        text += meeting->isScratchpad ? u"\n## Next meeting\n"_s
                                      : u"\n## "_s + dayName(calendar.day(meeting->date)) + u'\n';
        if (const QString notes = meeting->notes.trimmed(); !notes.isEmpty())
            text += u"\n"_s + notes + u"\n"_s;
        const QList<std::shared_ptr<ActionItem>> items = meeting->actionItems();
        if (!items.isEmpty())
            text += u"\n"_s;
        for (const auto &item : items)
            text += (item->isCompleted ? u"- [x] "_s : u"- [ ] "_s) + item->title.trimmed() + u'\n';
    }
    return text;
}

QString cantWrite(const QString &folder)
{
    return u"Tovren couldn't write the Markdown copy to "_s + folder +
           u". Check there's space and the folder is still there."_s;
}

void writeFile(const QString &path, const QByteArray &bytes, const QString &folder)
{
    QSaveFile file(path);
    if (!QDir().mkpath(QFileInfo(path).path()) || !file.open(QIODevice::WriteOnly) ||
        file.write(bytes) != bytes.size() || !file.commit())
        throw WriteError(cantWrite(folder));
}

} // namespace

WriteError::WriteError(const QString &message)
    : std::runtime_error(message.toStdString())
    , m_message(message)
{
}

QString withImageLinks(const QString &text, const QString &imagesPrefix,
                       const std::function<QString(const QUuid &)> &fileName)
{
    QString result;
    qsizetype last = 0;
    for (auto it = imageToken.globalMatch(text); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        result += QStringView(text).mid(last, match.capturedStart() - last);
        result += u"![]("_s + imagesPrefix + fileName(QUuid::fromString(match.captured(1))) + u')';
        last = match.capturedEnd();
    }
    return result + QStringView(text).mid(last);
}

QString fileNameFor(const QString &name, QStringList &taken)
{
    QString base;
    for (const QChar c : name.trimmed()) {
        // Characters that some file systems or shells refuse become a blank.
        base += (c.isPrint() && !u"/\\:*?\"<>|"_s.contains(c)) ? c : u' ';
    }
    // A leading dot would hide the file.
    while (base.trimmed().startsWith(u'.'))
        base = base.trimmed().mid(1);
    base = base.simplified();
    if (base.isEmpty())
        base = u"Unnamed"_s;
    base.truncate(100);
    QString candidate = base;
    for (int n = 2; taken.contains(candidate, Qt::CaseInsensitive); ++n)
        candidate = base + u' ' + QString::number(n);
    taken.append(candidate);
    return candidate + u".md"_s;
}

Contents collect(ModelContext &context)
{
    const Calendar calendar = Calendar::current();
    Contents contents;
    QSet<QUuid> images;
    const auto noteImages = [&images](const QString &text) {
        for (auto it = imageToken.globalMatch(text); it.hasNext();)
            images.insert(QUuid::fromString(it.next().captured(1)));
    };

    // Several entries of one day read as one page, as the journal shows them.
    QMap<QDate, QStringList> days;
    const auto entries = context.fetch<DailyEntry>(
        {{},
         {field(&DailyEntry::date).ascending(), field(&DailyEntry::createdAt).ascending()},
         {}});
    for (const auto &entry : entries) {
        if (!entry->content.trimmed().isEmpty())
            days[calendar.day(entry->date)].append(entry->content);
    }
    for (auto it = days.cbegin(); it != days.cend(); ++it) {
        const QString text = it.value().join(u"\n\n"_s);
        noteImages(text);
        contents.files.append({dayName(it.key()) + u".md"_s, text + u'\n'});
    }

    QStringList taken;
    const auto people = context.fetch<Person>({{}, {field(&Person::createdAt).ascending()}, {}});
    for (const auto &person : people) {
        for (const auto &meeting : person->meetings())
            noteImages(meeting->notes);
        contents.files.append(
            {u"people/"_s + fileNameFor(person->name, taken), personText(*person, calendar)});
    }
    images.remove(QUuid());
    contents.images = images.values();
    std::sort(contents.images.begin(), contents.images.end());
    return contents;
}

Summary write(const Contents &contents, const QString &folder)
{
    if (!QDir().mkpath(folder))
        throw WriteError(cantWrite(folder));
    Summary summary;
    // Images first, so that each link can carry the suffix of its image's type.
    QHash<QUuid, QString> names;
    const QMimeDatabase types;
    for (const QUuid &id : contents.images) {
        const QString source = ImageStorage::pathFor(id);
        // A page may name an image whose file is gone; its link then points nowhere.
        if (!QFileInfo::exists(source))
            continue;
        const QString suffix =
            types.mimeTypeForFile(source, QMimeDatabase::MatchContent).preferredSuffix();
        const QString name =
            id.toString(QUuid::WithoutBraces) + (suffix.isEmpty() ? QString() : u'.' + suffix);
        const QString target = folder + u"/images/"_s + name;
        QDir().mkpath(folder + u"/images"_s);
        QFile::remove(target);
        if (!QFile::copy(source, target))
            throw WriteError(cantWrite(folder));
        names.insert(id, name);
        ++summary.images;
    }
    const auto fileName = [&names](const QUuid &id) {
        return names.value(id, id.toString(QUuid::WithoutBraces));
    };
    for (const File &file : contents.files) {
        const bool person = file.relativePath.startsWith(u"people/"_s);
        const QString text =
            withImageLinks(file.text, person ? u"../images/"_s : u"images/"_s, fileName);
        writeFile(folder + u'/' + file.relativePath, text.toUtf8(), folder);
        ++(person ? summary.people : summary.days);
    }
    return summary;
}

QString summaryText(const Summary &summary, const QString &folder)
{
    const auto count = [](int n, const QString &one, const QString &many) {
        return QString::number(n) + u' ' + (n == 1 ? one : many);
    };
    return u"Wrote "_s + count(summary.days, u"day"_s, u"days"_s) + u", "_s +
           count(summary.people, u"person"_s, u"people"_s) + u" and "_s +
           count(summary.images, u"image"_s, u"images"_s) + u" to "_s + folder + u'.';
}

} // namespace MarkdownCopy
