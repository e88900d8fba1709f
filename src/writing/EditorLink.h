#pragma once

#include <QString>
#include <QUrl>
#include <QVariant>

#include <optional>

class Preferences;

// Links in the editor. Links of the "tovren" scheme (people, tags) are drawn from the text and
// never stored; every other link is the user's own and is written back as "[text](url)".
namespace EditorLink {

inline constexpr auto scheme = "tovren";
// Asks the journal's search for a tag.
inline constexpr auto searchNotice = "tovren.search";

bool isInternal(const QUrl &url);
bool isInternal(QStringView url);
// The link attribute of a text run holds either a URL or its text.
std::optional<QUrl> url(const QVariant &attribute);

QUrl personLink(const QString &personId);
QUrl tagLink(const QString &tagName);

enum class Followed { person, tag, external, ignored };
// A person link picks the person for the people screen and opens it; a tag link searches for
// the tag. Anything else is for the browser, which the caller opens.
Followed follow(const QUrl &url, Preferences &preferences);

} // namespace EditorLink
