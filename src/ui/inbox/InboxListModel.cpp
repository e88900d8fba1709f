#include "InboxListModel.h"

#include "core/Clock.h"
#include "core/records/InboxItem.h"
#include "core/store/ModelContext.h"
#include "inbox/InboxService.h"

#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QLocale>
#include <QPainter>
#include <QPalette>
#include <QSvgRenderer>

using namespace Qt::StringLiterals;

namespace {

// Line drawings in the symbolic style of desktop icon themes, for a theme without the kind's
// icon. "ink" becomes the palette colour they are drawn in.
constexpr auto svgHead = "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 24 24' "
                         "fill='none' stroke='ink' stroke-width='1.7' stroke-linecap='round' "
                         "stroke-linejoin='round'>";

const char *drawing(InboxItemKind kind)
{
    switch (kind) {
    case InboxItemKind::reminder:
        return "<path d='M6 16.5V11a6 6 0 0 1 12 0v5.5l1.5 1.8h-15z'/>"
               "<path d='M10 21a2.2 2.2 0 0 0 4 0'/>";
    case InboxItemKind::briefReady:
        return "<path d='M6 3h8l4 4v14H6z'/><path d='M14 3v4h4'/>"
               "<path d='M9 11.5h6M9 15h6M9 18.5h3.5'/>";
    case InboxItemKind::milestoneUnlocked:
        return "<path d='M8 4h8v5.5a4 4 0 0 1-8 0z'/><path d='M8 6H5v1a3.5 3.5 0 0 0 3.4 3.5'/>"
               "<path d='M16 6h3v1a3.5 3.5 0 0 1-3.4 3.5'/><path d='M12 13.5v3.5'/>"
               "<path d='M8.5 20.5h7M9.5 17h5l.5 3.5h-6z'/>";
    case InboxItemKind::aiSuggestion:
        return "<path d='M9.2 17.5h5.6M10 20.5h4'/>"
               "<path d='M9.2 17.5c0-2.2-3.2-3.6-3.2-7.5a6 6 0 0 1 12 0c0 3.9-3.2 5.3-3.2 7.5'/>";
    case InboxItemKind::system:
        break;
    }
    return "<circle cx='12' cy='12' r='9'/><path d='M12 11v6'/>"
           "<circle cx='12' cy='7.5' r='1.1' fill='ink' stroke='none'/>";
}

// Renders the drawing at whatever size the view asks for, so it stays sharp on any screen.
class LineIconEngine final : public QIconEngine {
public:
    explicit LineIconEngine(QByteArray svg)
        : m_svg(std::move(svg))
    {
    }

    void paint(QPainter *painter, const QRect &rect, QIcon::Mode, QIcon::State) override
    {
        QSvgRenderer renderer(m_svg);
        renderer.render(painter, rect);
    }
    QPixmap pixmap(const QSize &size, QIcon::Mode mode, QIcon::State state) override
    {
        QPixmap pixmap(size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        paint(&painter, QRect(QPoint(), size), mode, state);
        return pixmap;
    }
    QIconEngine *clone() const override { return new LineIconEngine(m_svg); }

private:
    QByteArray m_svg;
};

} // namespace

void InboxListModel::reload(ModelContext &context, const QDateTime &now)
{
    m_now = now;
    QList<Row> rows;
    qsizetype items = 0;
    qsizetype unread = 0;
    const auto sections = InboxService::group(context.tryFetch<InboxItem>(), now);
    for (const InboxService::Section &section : sections) {
        rows.append({true, section.title, {}, {}, {}, {}, false, {}});
        for (const auto &item : section.items) {
            rows.append({false, item->title, item->id, item->kind(), item->body, item->createdAt,
                         !item->readAt.has_value(), item->actionLabel});
            ++items;
            if (!item->readAt)
                ++unread;
        }
    }
    m_itemCount = items;
    m_unreadCount = unread;

    const bool sameRows = std::equal(
        rows.cbegin(), rows.cend(), m_rows.cbegin(), m_rows.cend(), [](const Row &a, const Row &b) {
            return a.isSection == b.isSection && (a.isSection ? a.title == b.title : a.id == b.id);
        });
    if (sameRows) {
        m_rows = std::move(rows);
        if (!m_rows.isEmpty())
            emit dataChanged(index(0), index(int(m_rows.size()) - 1));
        return;
    }
    beginResetModel();
    m_rows = std::move(rows);
    endResetModel();
}

int InboxListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

Qt::ItemFlags InboxListModel::flags(const QModelIndex &index) const
{
    if (!index.isValid() || index.row() >= m_rows.size() || m_rows.at(index.row()).isSection)
        return Qt::NoItemFlags;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemNeverHasChildren;
}

QVariant InboxListModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid() || index.row() >= m_rows.size())
        return {};
    const Row &row = m_rows.at(index.row());
    if (row.isSection)
        return role == Qt::DisplayRole ? QVariant(row.title)
               : role == SectionRole   ? QVariant(true)
                                       : QVariant();
    switch (role) {
    case Qt::DisplayRole:
        return row.title;
    case Qt::DecorationRole:
        return icon(row.kind, QGuiApplication::palette().color(QPalette::Text));
    case Qt::ToolTipRole: {
        const Calendar calendar = Calendar::current();
        const QLocale locale;
        return QString(InboxService::kindLabel(row.kind) + u" · "_s +
                       locale.toString(calendar.day(row.createdAt), QLocale::LongFormat) + u", "_s +
                       locale.toString(row.createdAt.toTimeZone(calendar.timeZone()).time(),
                                       QLocale::ShortFormat));
    }
    case Qt::AccessibleDescriptionRole:
        return QString((row.unread ? tr("Unread. ") : QString()) + row.body);
    case IdRole:
        return row.id;
    case SectionRole:
        return false;
    case BodyRole:
        return row.body;
    case AgeRole:
        return ageText(row.createdAt, m_now);
    case UnreadRole:
        return row.unread;
    case ActionLabelRole:
        return row.actionLabel.value_or(QString());
    default:
        return {};
    }
}

int InboxListModel::rowOf(const QUuid &id) const
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (!m_rows.at(i).isSection && m_rows.at(i).id == id)
            return int(i);
    }
    return -1;
}

int InboxListModel::rowOfSection(const QString &title) const
{
    for (qsizetype i = 0; i < m_rows.size(); ++i) {
        if (m_rows.at(i).isSection && m_rows.at(i).title == title)
            return int(i);
    }
    return -1;
}

int InboxListModel::nearestItemRow(int row) const
{
    const int last = int(m_rows.size()) - 1;
    for (int i = std::clamp(row, 0, std::max(last, 0)); i <= last; ++i) {
        if (!m_rows.at(i).isSection)
            return i;
    }
    for (int i = std::min(row, last); i >= 0; --i) {
        if (!m_rows.at(i).isSection)
            return i;
    }
    return -1;
}

QString InboxListModel::ageText(const QDateTime &at, const QDateTime &now)
{
    const Calendar calendar = Calendar::current();
    const qint64 seconds = at.secsTo(now);
    const qint64 days = calendar.day(at).daysTo(calendar.day(now));
    if (seconds >= 0 && days == 0) {
        if (seconds < 60)
            return tr("just now");
        if (seconds < 3600)
            return tr("%1 min ago").arg(seconds / 60);
        return tr("%1 h ago").arg(seconds / 3600);
    }
    if (days == 1)
        return tr("yesterday");
    if (days > 1 && days < 7)
        return tr("%1 days ago").arg(days);
    // Older, or ahead of a clock that was set back: the day itself.
    return QLocale().toString(calendar.day(at), QLocale::ShortFormat);
}

QIcon InboxListModel::icon(InboxItemKind kind, const QColor &ink)
{
    static QHash<QPair<int, QRgb>, QIcon> cache;
    const QPair<int, QRgb> key{int(kind), ink.rgba()};
    if (const auto found = cache.constFind(key); found != cache.cend())
        return *found;
    const QString name = InboxService::themeIconName(kind);
    QIcon icon;
    if (QIcon::hasThemeIcon(name)) {
        icon = QIcon::fromTheme(name);
    } else {
        QByteArray svg = QByteArray(svgHead) + drawing(kind) + "</svg>";
        svg.replace("'ink'", QByteArray("'" + ink.name().toLatin1() + "'"));
        icon = QIcon(new LineIconEngine(svg));
    }
    cache.insert(key, icon);
    return icon;
}
