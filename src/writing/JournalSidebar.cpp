#include "JournalSidebar.h"

#include <QRegularExpression>
#include <QStringList>

using namespace Qt::StringLiterals;

namespace JournalSidebar {

namespace {

// The mark patterns below can rescan a line per unclosed mark; a row needs only the start of
// a page, so lines are cut and the walk stops early.
constexpr qsizetype maxLineLength = 2000;
constexpr qsizetype enoughText = 1000;

} // namespace

QString cleanedContent(const QString &text)
{
    static const QRegularExpression structure(u"^(```.*|-{3,}|\\|?[\\s:|-]*-{3,}[\\s:|-]*)$"_s);
    static const QRegularExpression image(u"\\{\\{img:[^}]+\\}\\}"_s);
    static const QRegularExpression link(u"\\[([^\\]]+)\\]\\([^)]+\\)"_s);
    static const QRegularExpression underline(u"</?u>"_s);
    static const QRegularExpression bold(u"\\*\\*(.+?)\\*\\*"_s);
    static const QRegularExpression italic(u"\\*(.+?)\\*"_s);
    static const QRegularExpression highlight(u"==(\\{[a-z]+\\})?(.+?)=="_s);
    static const QRegularExpression code(u"`(.+?)`"_s);

    QStringList parts;
    qsizetype length = 0;
    for (QStringView raw : QStringView(text).split(u'\n')) {
        if (length >= enoughText)
            break;
        QString line = raw.left(maxLineLength).trimmed().toString();
        if (line.startsWith(u"# ") || line.startsWith(u"## ") || line.startsWith(u"### ") ||
            structure.match(line).hasMatch())
            continue;
        for (QStringView prefix : {u"- [ ] ", u"- [x] ", u"> "}) {
            if (line.startsWith(prefix)) {
                line.remove(0, prefix.size());
                break;
            }
        }
        line.remove(u'|');
        line.remove(image);
        line.replace(link, u"\\1"_s);
        line.remove(underline);
        line.replace(bold, u"\\1"_s);
        line.replace(italic, u"\\1"_s);
        line.replace(highlight, u"\\2"_s);
        line.replace(code, u"\\1"_s);
        line = line.trimmed();
        if (line.isEmpty())
            continue;
        length += line.size() + 1;
        parts.append(line);
    }
    return parts.join(u' ');
}

} // namespace JournalSidebar
