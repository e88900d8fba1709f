#include "DataExportFormat.h"

#include "JsonReader.h"
#include "JsonWriter.h"

#include <QHash>

#include <functional>
#include <limits>

using namespace Qt::StringLiterals;

namespace {

void optionalPair(JsonWriter &out, QLatin1StringView key, const std::optional<QString> &value)
{
    if (value) {
        out.key(key);
        out.value(*value);
    }
}

void pair(JsonWriter &out, QLatin1StringView key, const QString &value)
{
    out.key(key);
    out.value(value);
}

// Reads the file's values into the structs, knowing at each step where in the file it is, so
// that a refusal names the key: "entries[2].date" should be text at line 9, column 15.
class Decoder {
public:
    explicit Decoder(QByteArrayView bytes)
        : m_reader(bytes)
    {
    }

    ExportData document()
    {
        ExportData data;
        object({
            {"entries"_L1, true, [&] { data.entries = list<ExportedEntry>(&Decoder::entry); }},
            {"exportedAt"_L1, true, [&] { data.exportedAt = text(); }},
            {"goals"_L1, true, [&] { data.goals = list<ExportedGoal>(&Decoder::goal); }},
            {"inbox"_L1, true, [&] { data.inbox = list<ExportedInboxItem>(&Decoder::inboxItem); }},
            {"meetings"_L1, true,
             [&] { data.meetings = list<ExportedMeeting>(&Decoder::meeting); }},
            {"schemaVersion"_L1, true,
             [&] {
                 data.schemaVersion = integer(std::numeric_limits<qint64>::min(),
                                              std::numeric_limits<qint64>::max());
             }},
        });
        m_reader.finish();
        uniqueIds(data.entries, "entries"_L1);
        uniqueIds(data.meetings, "meetings"_L1);
        uniqueIds(data.goals, "goals"_L1);
        uniqueIds(data.inbox, "inbox"_L1);
        return data;
    }

private:
    struct Field {
        QLatin1StringView name;
        bool required;
        std::function<void()> read;
    };
    struct Step {
        QLatin1StringView key; // empty for an element of a list
        qsizetype index = 0;
    };

    ExportedEntry entry()
    {
        ExportedEntry e;
        object({
            {"content"_L1, true, [&] { e.content = text(); }},
            {"createdAt"_L1, true, [&] { e.createdAt = text(); }},
            {"date"_L1, true, [&] { e.date = text(); }},
            {"id"_L1, true, [&] { e.id = text(); }},
            {"summary"_L1, false, [&] { e.summary = optionalText(); }},
        });
        return e;
    }

    ExportedActionItem actionItem()
    {
        ExportedActionItem a;
        object({
            {"dueDate"_L1, false, [&] { a.dueDate = optionalText(); }},
            {"isCompleted"_L1, true, [&] { a.isCompleted = boolean(); }},
            {"title"_L1, true, [&] { a.title = text(); }},
        });
        return a;
    }

    ExportedMeeting meeting()
    {
        ExportedMeeting m;
        object({
            {"actionItems"_L1, true,
             [&] { m.actionItems = list<ExportedActionItem>(&Decoder::actionItem); }},
            {"date"_L1, true, [&] { m.date = text(); }},
            {"id"_L1, true, [&] { m.id = text(); }},
            {"notes"_L1, true, [&] { m.notes = text(); }},
            {"person"_L1, true, [&] { m.person = text(); }},
        });
        return m;
    }

    ExportedMilestone milestone()
    {
        ExportedMilestone m;
        object({
            {"completedAt"_L1, false, [&] { m.completedAt = optionalText(); }},
            {"id"_L1, true, [&] { m.id = text(); }},
            {"isCompleted"_L1, true, [&] { m.isCompleted = boolean(); }},
            {"orderIndex"_L1, true,
             [&] {
                 m.orderIndex =
                     int(integer(std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
             }},
            {"title"_L1, true, [&] { m.title = text(); }},
        });
        return m;
    }

    ExportedGoal goal()
    {
        ExportedGoal g;
        object({
            {"id"_L1, true, [&] { g.id = text(); }},
            {"milestones"_L1, true,
             [&] { g.milestones = list<ExportedMilestone>(&Decoder::milestone); }},
            {"notes"_L1, true, [&] { g.notes = text(); }},
            {"status"_L1, true, [&] { g.status = text(); }},
            {"targetDate"_L1, false, [&] { g.targetDate = optionalText(); }},
            {"title"_L1, true, [&] { g.title = text(); }},
        });
        return g;
    }

    ExportedInboxItem inboxItem()
    {
        ExportedInboxItem i;
        object({
            {"actionLabel"_L1, false, [&] { i.actionLabel = optionalText(); }},
            {"actionRoute"_L1, false, [&] { i.actionRoute = optionalText(); }},
            {"body"_L1, true, [&] { i.body = text(); }},
            {"createdAt"_L1, true, [&] { i.createdAt = text(); }},
            {"id"_L1, true, [&] { i.id = text(); }},
            {"kind"_L1, true, [&] { i.kind = text(); }},
            {"payload"_L1, false, [&] { i.payload = optionalText(); }},
            {"readAt"_L1, false, [&] { i.readAt = optionalText(); }},
            {"title"_L1, true, [&] { i.title = text(); }},
        });
        return i;
    }

    // Known keys are read once each and the required ones must all be there; other keys are
    // checked for form and passed over, as a later version may add some.
    void object(std::initializer_list<Field> fields)
    {
        if (m_reader.peek() != JsonReader::Kind::Object)
            wrongType(u"an object"_s);
        m_reader.beginObject();
        quint32 seen = 0;
        while (const std::optional<QString> key = m_reader.nextKey()) {
            const Field *match = nullptr;
            for (const Field &field : fields) {
                if (field.name == *key) {
                    match = &field;
                    break;
                }
            }
            if (!match) {
                m_reader.skipValue();
                continue;
            }
            const quint32 bit = 1u << (match - fields.begin());
            m_path.append({match->name});
            if (seen & bit)
                m_reader.fail(u"\"%1\" is given twice"_s.arg(path()));
            seen |= bit;
            match->read();
            m_path.removeLast();
        }
        for (const Field &field : fields) {
            if (field.required && !(seen & (1u << (&field - fields.begin())))) {
                m_path.append({field.name});
                throw JsonReader::Error(u"\"%1\" is missing"_s.arg(path()));
            }
        }
    }

    template<class T>
    QList<T> list(T (Decoder::*element)())
    {
        if (m_reader.peek() != JsonReader::Kind::Array)
            wrongType(u"a list"_s);
        m_reader.beginArray();
        QList<T> result;
        for (qsizetype index = 0; m_reader.nextElement(); ++index) {
            m_path.append({{}, index});
            result.append((this->*element)());
            m_path.removeLast();
        }
        return result;
    }

    QString text()
    {
        if (m_reader.peek() != JsonReader::Kind::String)
            wrongType(u"text"_s);
        return m_reader.readString();
    }

    std::optional<QString> optionalText()
    {
        if (m_reader.peek() == JsonReader::Kind::Null) {
            m_reader.readNull();
            return std::nullopt;
        }
        return text();
    }

    bool boolean()
    {
        if (m_reader.peek() != JsonReader::Kind::Boolean)
            wrongType(u"true or false"_s);
        return m_reader.readBoolean();
    }

    qint64 integer(qint64 lowest, qint64 highest)
    {
        if (m_reader.peek() != JsonReader::Kind::Number)
            wrongType(u"a whole number"_s);
        const qsizetype start = m_reader.offset();
        const std::optional<qint64> value = m_reader.readInteger();
        if (!value)
            m_reader.fail(u"\"%1\" should be a whole number"_s.arg(path()), start);
        if (*value < lowest || *value > highest)
            m_reader.fail(u"\"%1\" is out of range"_s.arg(path()), start);
        return *value;
    }

    template<class Record>
    void uniqueIds(const QList<Record> &records, QLatin1StringView key)
    {
        QHash<QString, qsizetype> first;
        first.reserve(records.size());
        for (qsizetype i = 0; i < records.size(); ++i) {
            const QString id = DataExportFormat::idKey(records.at(i).id);
            if (const auto earlier = first.constFind(id); earlier != first.cend())
                throw JsonReader::Error(
                    u"\"%1[%2].id\" repeats the id of %1[%3]"_s.arg(key).arg(i).arg(
                        earlier.value()));
            first.insert(id, i);
        }
    }

    [[noreturn]] void wrongType(const QString &expected)
    {
        if (m_path.isEmpty())
            m_reader.fail(u"the file should hold %1"_s.arg(expected));
        m_reader.fail(u"\"%1\" should be %2"_s.arg(path(), expected));
    }

    QString path() const
    {
        QString result;
        for (const Step &step : m_path) {
            if (step.key.isEmpty())
                result += u'[' + QString::number(step.index) + u']';
            else
                result += (result.isEmpty() ? QString() : u"."_s) + step.key;
        }
        return result;
    }

    JsonReader m_reader;
    QList<Step> m_path;
};

} // namespace

namespace DataExportFormat {

QByteArray encode(const ExportData &data)
{
    JsonWriter out;
    out.beginObject();

    out.key("entries"_L1);
    out.beginArray();
    for (const ExportedEntry &e : data.entries) {
        out.beginObject();
        pair(out, "content"_L1, e.content);
        pair(out, "createdAt"_L1, e.createdAt);
        pair(out, "date"_L1, e.date);
        pair(out, "id"_L1, e.id);
        optionalPair(out, "summary"_L1, e.summary);
        out.endObject();
    }
    out.endArray();

    pair(out, "exportedAt"_L1, data.exportedAt);

    out.key("goals"_L1);
    out.beginArray();
    for (const ExportedGoal &g : data.goals) {
        out.beginObject();
        pair(out, "id"_L1, g.id);
        out.key("milestones"_L1);
        out.beginArray();
        for (const ExportedMilestone &m : g.milestones) {
            out.beginObject();
            optionalPair(out, "completedAt"_L1, m.completedAt);
            pair(out, "id"_L1, m.id);
            out.key("isCompleted"_L1);
            out.value(m.isCompleted);
            out.key("orderIndex"_L1);
            out.value(m.orderIndex);
            pair(out, "title"_L1, m.title);
            out.endObject();
        }
        out.endArray();
        pair(out, "notes"_L1, g.notes);
        pair(out, "status"_L1, g.status);
        optionalPair(out, "targetDate"_L1, g.targetDate);
        pair(out, "title"_L1, g.title);
        out.endObject();
    }
    out.endArray();

    out.key("inbox"_L1);
    out.beginArray();
    for (const ExportedInboxItem &i : data.inbox) {
        out.beginObject();
        optionalPair(out, "actionLabel"_L1, i.actionLabel);
        optionalPair(out, "actionRoute"_L1, i.actionRoute);
        pair(out, "body"_L1, i.body);
        pair(out, "createdAt"_L1, i.createdAt);
        pair(out, "id"_L1, i.id);
        pair(out, "kind"_L1, i.kind);
        optionalPair(out, "payload"_L1, i.payload);
        optionalPair(out, "readAt"_L1, i.readAt);
        pair(out, "title"_L1, i.title);
        out.endObject();
    }
    out.endArray();

    out.key("meetings"_L1);
    out.beginArray();
    for (const ExportedMeeting &m : data.meetings) {
        out.beginObject();
        out.key("actionItems"_L1);
        out.beginArray();
        for (const ExportedActionItem &a : m.actionItems) {
            out.beginObject();
            optionalPair(out, "dueDate"_L1, a.dueDate);
            out.key("isCompleted"_L1);
            out.value(a.isCompleted);
            pair(out, "title"_L1, a.title);
            out.endObject();
        }
        out.endArray();
        pair(out, "date"_L1, m.date);
        pair(out, "id"_L1, m.id);
        pair(out, "notes"_L1, m.notes);
        pair(out, "person"_L1, m.person);
        out.endObject();
    }
    out.endArray();

    out.key("schemaVersion"_L1);
    out.value(data.schemaVersion);
    out.endObject();
    return out.take();
}

ExportData decode(QByteArrayView bytes)
{
    if (bytes.size() > maxFileBytes)
        throw DecodeError(u"the file is larger than %1 MB"_s.arg(maxFileBytes / (1024 * 1024)));
    try {
        return Decoder(bytes).document();
    } catch (const JsonReader::Error &error) {
        throw DecodeError(error.description());
    }
}

} // namespace DataExportFormat
