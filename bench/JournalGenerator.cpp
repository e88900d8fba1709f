// Writes a realistic journal of N years into a store through the same records and context the
// application uses, so that benchmarks open what a long-time user would have.
//
//   journal_generator STORE [--years N] [--seed S] [--pages-out FILE]
//
// --pages-out also writes the pages as JSON lines {"date":..., "content":...}, so that the
// benchmark can hand the same text to another server.
// Per ten years: ~2,600 workday pages of 1-2 KB with #tags, @mentions, lists and some image
// tokens; 150 people; 2,000 meetings with notes and action items; 520 weekly and 120 monthly
// reviews of ~1 KB; 5,000 tasks; 40 goals with milestones; 30 library documents of ~20 KB; 500
// inbox rows. The same seed gives the same text.
#include "core/TagParser.h"
#include "core/records/ActionItem.h"
#include "core/records/DailyEntry.h"
#include "core/records/Document.h"
#include "core/records/Goal.h"
#include "core/records/GoalMilestone.h"
#include "core/records/InboxItem.h"
#include "core/records/Meeting.h"
#include "core/records/Person.h"
#include "core/records/StoreSchema.h"
#include "core/records/TaskItem.h"
#include "core/records/WeeklyBrief.h"
#include "core/store/ModelContainer.h"
#include "core/store/ModelContext.h"

#include <QCoreApplication>
#include <QDate>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

#include <cstdio>
#include <random>

using namespace Qt::StringLiterals;

namespace {

const QStringList firstNames = {u"Amara"_s, u"Bruno"_s,   u"Chen"_s,     u"Dalia"_s,  u"Emeka"_s,
                                u"Freya"_s, u"Gustavo"_s, u"Hana"_s,     u"Ilya"_s,   u"Joon"_s,
                                u"Kavya"_s, u"Lars"_s,    u"Mireille"_s, u"Nikhil"_s, u"Olu"_s,
                                u"Priya"_s, u"Quentin"_s, u"Rosa"_s,     u"Sven"_s,   u"Tamsin"_s,
                                u"Umar"_s,  u"Vera"_s,    u"Wen"_s,      u"Ximena"_s, u"Yusuf"_s};
const QStringList lastNames = {u"Okafor"_s, u"Lindqvist"_s, u"Moreau"_s, u"Tanaka"_s,
                               u"Haddad"_s, u"Kowalski"_s,  u"Reyes"_s,  u"Brennan"_s,
                               u"Achebe"_s, u"Novak"_s,     u"Sato"_s,   u"Fischer"_s};
const QStringList tags = {u"launch"_s,    u"hiring"_s,  u"oncall"_s, u"roadmap"_s, u"perf"_s,
                          u"migration"_s, u"design"_s,  u"budget"_s, u"review"_s,  u"security"_s,
                          u"mentoring"_s, u"billing"_s, u"search"_s, u"infra"_s,   u"quality"_s};
const QStringList verbs = {u"Shipped"_s,  u"Reviewed"_s,  u"Drafted"_s,   u"Paired on"_s,
                           u"Debugged"_s, u"Planned"_s,   u"Untangled"_s, u"Wrote up"_s,
                           u"Measured"_s, u"Cleaned up"_s};
const QStringList objects = {
    u"the import pipeline"_s,   u"the quarterly plan"_s,     u"a flaky integration test"_s,
    u"the onboarding doc"_s,    u"the cache invalidation"_s, u"the pricing page copy"_s,
    u"the incident timeline"_s, u"the API deprecation"_s,    u"the dashboard queries"_s,
    u"the release checklist"_s, u"the hiring rubric"_s,      u"the schema change"_s};
const QStringList asides = {
    u"It took longer than expected because the old code had three callers nobody knew about."_s,
    u"Good conversation afterwards about what we would do differently next time."_s,
    u"Left a note for the team so the next person doesn't trip on the same thing."_s,
    u"Still not sure the numbers add up; want a second pair of eyes tomorrow."_s,
    u"The fix was one line, finding it was the whole afternoon."_s,
    u"Agreed to revisit once the load test results are in."_s};

class Generator {
public:
    Generator(ModelContext &context, int years, quint32 seed, QIODevice *pagesOut)
        : m_context(context)
        , m_pagesOut(pagesOut)
        , m_years(years)
        , m_random(seed)
    {
    }

    void run()
    {
        const int scale10 = m_years; // counts are given per ten years
        people(150);
        pages();
        meetings(2000 * scale10 / 10);
        reviews();
        tasks(5000 * scale10 / 10);
        goals(40 * scale10 / 10);
        documents(30);
        inbox(500 * scale10 / 10);
        m_context.save();
    }

private:
    int pick(int bound) { return std::uniform_int_distribution<int>(0, bound - 1)(m_random); }
    const QString &any(const QStringList &list) { return list.at(pick(int(list.size()))); }
    bool chance(int percent) { return pick(100) < percent; }

    QDate firstDay() const { return m_today.addYears(-m_years); }
    QDateTime dayIn(int spanDays) { return m_today.addDays(-pick(spanDays)).startOfDay(); }

    QString imageId()
    {
        QByteArray bytes(16, '\0');
        for (char &byte : bytes)
            byte = char(pick(256));
        return QUuid::fromRfc4122(bytes).toString(QUuid::WithoutBraces);
    }

    QString mention() { return u"@"_s + m_people.at(pick(int(m_people.size())))->name; }
    QString sentence()
    {
        return any(verbs) + u" "_s + any(objects) + u" with "_s + mention() + u" #"_s + any(tags) +
               u". "_s + any(asides);
    }

    void saveEvery(int count, int each)
    {
        if (count % each == 0)
            m_context.save();
    }

    void people(int count)
    {
        static const RelationshipType kinds[] = {
            RelationshipType::manager, RelationshipType::report,    RelationshipType::peer,
            RelationshipType::mentee,  RelationshipType::skipLevel, RelationshipType::other};
        for (int i = 0; i < count; ++i) {
            const QString name = firstNames.at(i % firstNames.size()) + u" "_s +
                                 lastNames.at((i / firstNames.size() + i) % lastNames.size());
            auto person =
                std::make_shared<Person>(name, u"Engineer"_s, kinds[pick(6)],
                                         name.toLower().replace(u' ', u'.') + u"@example.com"_s);
            m_context.insert(person);
            m_people.append(person);
        }
        m_context.save();
    }

    void pages()
    {
        int written = 0;
        for (QDate day = firstDay(); day <= m_today; day = day.addDays(1)) {
            if (day.dayOfWeek() > 5)
                continue;
            const int target = 1024 + pick(1024);
            QString text = sentence();
            while (text.size() < target) {
                switch (pick(5)) {
                case 0:
                    text += u"\n\n- "_s + sentence() + u"\n- "_s + sentence() + u"\n- [ ] "_s +
                            any(verbs) + u" "_s + any(objects);
                    break;
                case 1:
                    if (chance(30)) {
                        text += u"\n\n{{img:"_s + imageId() + u"|w=640,h=400}}"_s;
                        break;
                    }
                    [[fallthrough]];
                default:
                    text += u"\n\n"_s + sentence();
                }
            }
            if (m_pagesOut)
                m_pagesOut->write(QJsonDocument(QJsonObject{{"date"_L1, day.toString(Qt::ISODate)},
                                                            {"content"_L1, text}})
                                      .toJson(QJsonDocument::Compact) +
                                  '\n');
            auto entry = std::make_shared<DailyEntry>(text, day.startOfDay(), chance(15));
            m_context.insert(entry);
            TagParser::resolveTags(TagParser::extractTagNames(text), m_context);
            saveEvery(++written, 200);
        }
        m_context.save();
        std::fprintf(stderr, "journal_generator: %d pages\n", written);
    }

    void meetings(int count)
    {
        const int span = int(firstDay().daysTo(m_today));
        for (int i = 0; i < count; ++i) {
            auto meeting = std::make_shared<Meeting>(
                m_people.at(pick(int(m_people.size()))), dayIn(span),
                sentence() + u"\n\n- "_s + sentence() + u"\n- "_s + sentence());
            m_context.insert(meeting);
            for (int a = pick(3); a >= 0; --a) {
                auto item = std::make_shared<ActionItem>(any(verbs) + u" "_s + any(objects),
                                                         meeting, meeting->date.addDays(7));
                item->isCompleted = chance(70);
                m_context.insert(item);
            }
            saveEvery(i + 1, 500);
        }
        m_context.save();
    }

    QString review()
    {
        QString text = u"## Highlights\n\n- "_s + sentence() + u"\n- "_s + sentence();
        while (text.size() < 1024)
            text += u"\n\n"_s + sentence();
        return text;
    }

    void reviews()
    {
        for (QDate day = firstDay(); day <= m_today; day = day.addDays(1)) {
            if (day.dayOfWeek() == 1)
                m_context.insert(std::make_shared<WeeklyBrief>(
                    day.startOfDay(), day.addDays(6).startOfDay(), review(), u"[]"_s, 5, 5));
            if (day.day() == 1)
                m_context.insert(std::make_shared<WeeklyBrief>(
                    day.startOfDay(), day.addMonths(1).addDays(-1).startOfDay(), review(), u"[]"_s,
                    20, 20, BriefPeriod::monthly));
        }
        m_context.save();
    }

    void tasks(int count)
    {
        const int span = int(firstDay().daysTo(m_today));
        for (int i = 0; i < count; ++i) {
            auto task = std::make_shared<TaskItem>(
                any(verbs) + u" "_s + any(objects) + u" #"_s + any(tags), pick(4),
                chance(50) ? std::optional(dayIn(span)) : std::nullopt);
            if (chance(80)) {
                task->isCompleted = true;
                task->completedAt = dayIn(span);
            }
            m_context.insert(task);
            saveEvery(i + 1, 1000);
        }
        m_context.save();
    }

    void goals(int count)
    {
        for (int i = 0; i < count; ++i) {
            auto goal = std::make_shared<Goal>(any(verbs) + u" "_s + any(objects), sentence(),
                                               dayIn(365 * m_years));
            goal->status = GoalStatus(pick(4));
            m_context.insert(goal);
            for (int m = 0; m < 3 + pick(4); ++m) {
                auto milestone =
                    std::make_shared<GoalMilestone>(any(verbs) + u" "_s + any(objects), m, goal);
                milestone->isCompleted = chance(50);
                m_context.insert(milestone);
            }
        }
        m_context.save();
    }

    void documents(int count)
    {
        for (int i = 0; i < count; ++i) {
            QString content;
            while (content.size() < 20 * 1024)
                content += sentence() + u"\n\n"_s;
            m_context.insert(std::make_shared<Document>(u"Document %1"_s.arg(i + 1),
                                                        DocumentCategory(pick(8)), content));
        }
        m_context.save();
    }

    void inbox(int count)
    {
        for (int i = 0; i < count; ++i) {
            auto row = std::make_shared<InboxItem>(InboxItemKind(pick(5)),
                                                   any(verbs) + u" "_s + any(objects), sentence());
            if (chance(80))
                row->readAt = QDateTime::currentDateTimeUtc();
            m_context.insert(row);
        }
        m_context.save();
    }

    ModelContext &m_context;
    QIODevice *m_pagesOut;
    int m_years;
    std::mt19937 m_random;
    const QDate m_today = QDate::currentDate();
    QList<std::shared_ptr<Person>> m_people;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QStringList args = app.arguments().mid(1);
    int years = 10;
    quint32 seed = 20240601;
    QString path;
    QString pagesOut;
    for (qsizetype i = 0; i < args.size(); ++i) {
        if (args.at(i) == u"--years"_s && i + 1 < args.size())
            years = args.at(++i).toInt();
        else if (args.at(i) == u"--seed"_s && i + 1 < args.size())
            seed = args.at(++i).toUInt();
        else if (args.at(i) == u"--pages-out"_s && i + 1 < args.size())
            pagesOut = args.at(++i);
        else if (args.at(i).startsWith(u'-'))
            years = 0; // an option it doesn't know, such as --help: show the usage
        else
            path = args.at(i);
    }
    if (path.isEmpty() || years < 1) {
        std::fprintf(stderr, "usage: journal_generator STORE [--years N] [--seed S] "
                             "[--pages-out FILE]\n");
        return 2;
    }
    if (QFile::exists(path)) {
        std::fprintf(stderr, "journal_generator: %s exists already; give a new file\n",
                     qPrintable(path));
        return 2;
    }
    try {
        ModelContainer container(StoreSchema::current(),
                                 ModelContainer::Configuration::atPath(path));
        QFile pages(pagesOut);
        if (!pagesOut.isEmpty() && !pages.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            std::fprintf(stderr, "journal_generator: can't write %s\n", qPrintable(pagesOut));
            return 1;
        }
        Generator(container.mainContext(), years, seed, pagesOut.isEmpty() ? nullptr : &pages)
            .run();
    } catch (const StoreError &error) {
        std::fprintf(stderr, "journal_generator: %s\n", qPrintable(error.description()));
        return 1;
    }
    return 0;
}
