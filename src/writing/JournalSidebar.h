#pragma once

#include <QString>

// The journal's list of days.
namespace JournalSidebar {

// A page's words for its row: no headings, fences, rules, markers, images or marks. Long pages
// give their first thousand or so characters; a row shows fewer.
QString cleanedContent(const QString &text);

} // namespace JournalSidebar
